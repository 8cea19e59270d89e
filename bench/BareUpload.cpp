// SPDX-License-Identifier: MIT
#include "BareUpload.h"

#include <memory>
#include <stdexcept>
#include <utility>

namespace morvellacinto::bench {
namespace {

// An easy handle with the request that the library makes.
class Upload {
public:
    explicit Upload(const UploadTarget& target) : handle_(curl_easy_init()) {
        for (const char* header : {"Accept-Encoding: gzip",
                                   "API_TOKEN: 6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42", "Expect:"}) {
            headers_ = curl_slist_append(headers_, header);
        }
        set(CURLOPT_URL, target.url.c_str());
        set(CURLOPT_CAINFO, target.trustFile.c_str());
        set(CURLOPT_HTTPHEADER, headers_);
        set(CURLOPT_POSTFIELDSIZE, static_cast<long>(target.body.size()));
        set(CURLOPT_POSTFIELDS, target.body.data());
        set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_WRITEFUNCTION, &Upload::onBody);
        set(CURLOPT_WRITEDATA, &answer_);
    }
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;
    ~Upload() {
        curl_easy_cleanup(handle_);
        curl_slist_free_all(headers_);
    }

    template <class T>
    void set(CURLoption option, T value) {
        if (curl_easy_setopt(handle_, option, value) != CURLE_OK) {
            throw std::runtime_error("libcurl lacks an option");
        }
    }
    [[nodiscard]] CURL* handle() const { return handle_; }
    [[nodiscard]] std::string answer(CURLcode result) {
        if (result != CURLE_OK || answer_.empty()) {
            throw std::runtime_error(curl_easy_strerror(result));
        }
        return std::move(answer_);
    }

private:
    static std::size_t onBody(char* bytes, std::size_t, std::size_t count, void* answer) {
        static_cast<std::string*>(answer)->append(bytes, count);
        return count;
    }

    CURL* const handle_;
    curl_slist* headers_ = nullptr;
    std::string answer_;
};

} // namespace

BareMulti::BareMulti(UploadTarget target) : target_(std::move(target)), multi_(curl_multi_init()) {}

BareMulti::~BareMulti() { curl_multi_cleanup(multi_); }

std::string BareMulti::upload() {
    Upload upload(target_);
    const char* const none = nullptr; // with a folder libcurl keeps no parsed trust store
    upload.set(CURLOPT_CAPATH, none);
    curl_multi_add_handle(multi_, upload.handle());
    CURLcode result = CURLE_OK;
    for (int running = 1; running > 0;) {
        curl_multi_perform(multi_, &running);
        if (running > 0) {
            curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
        }
    }
    int left = 0;
    if (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        result = message->data.result;
    }
    curl_multi_remove_handle(multi_, upload.handle());
    return upload.answer(result);
}

std::string uploadByNewEasyHandle(const UploadTarget& target) {
    Upload upload(target);
    return upload.answer(curl_easy_perform(upload.handle()));
}

} // namespace morvellacinto::bench
