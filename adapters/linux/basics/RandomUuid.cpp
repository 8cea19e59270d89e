#include "RandomUuid.h"

#include <algorithm>
#include <system_error>
#include <systemd/sd-id128.h>

namespace morvellacinto::native {

Uuid randomUuid() {
    sd_id128_t random{};
    const int result = sd_id128_randomize(&random);
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), "random identifier");
    }
    Uuid::Bytes bytes;
    std::copy(std::begin(random.bytes), std::end(random.bytes), bytes.begin());
    return Uuid(bytes);
}

} // namespace morvellacinto::native
