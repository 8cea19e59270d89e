// SPDX-License-Identifier: MIT
#include "morvellacinto/jsonmapping/AVJSON.h"

using namespace morvellacinto;

// What must not compile, one a case, with the sentence that tells why.

class Described : public AVObject {
    AVJSON_CLASS(Described, AVObject)
};
#if CASE == 1 // AVJSON_CLASS names another base than the nearest described one
class Skipping : public Described {
    AVJSON_CLASS(Skipping, AVObject)
};
#elif CASE == 2 // AVJSON_CLASS names another class than the one that it stands in
struct Renamed {
    AVJSON_CLASS(Described, void)
};
#elif CASE == 3 // a described base is virtual
struct Base {
    AVJSON_CLASS(Base, void)
};
struct Derived : virtual Base {
    AVJSON_CLASS(Derived, Base)
};
#endif
