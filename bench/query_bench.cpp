// SPDX-License-Identifier: MIT
// Turning tag lists into a query string, beside copying the bytes and three other encoders.

#include "Comparison.h"

#include "morvellacinto/audience/KRAudienceManager.h"

#include <QUrl>
#include <boost/url/encode.hpp>
#include <boost/url/grammar/lut_chars.hpp>
#include <boost/url/src.hpp>
#include <curl/curl.h>

#include <random>

namespace morvellacinto::bench {
namespace {

constexpr std::string_view unchanged = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                       "0123456789-._~!$&'()*+,;=:[]";

std::vector<std::string> shortTags() {
    std::mt19937 random(1);
    std::vector<std::string> tags;
    for (int tag = 0; tag < 1000; ++tag) {
        tags.push_back("segment " + std::to_string(random() % 100'000));
    }
    return tags;
}

std::vector<std::string> oneLargeValue() {
    std::mt19937 random(2);
    std::string value;
    while (value.size() < 1'000'000) {
        value += random() % 4 == 0 ? static_cast<char>(random())
                                   : static_cast<char>('a' + random() % 26);
    }
    return {value};
}

template <class Encode>
Contender joined(const std::string& who, const std::vector<std::string>& values, Encode encode,
                 std::optional<double> aim = std::nullopt) {
    return repeated(
        who,
        [=] {
            std::string query;
            for (const std::string& value : values) {
                query += query.empty() ? "seg=" : "&seg=";
                encode(query, value);
            }
            return query;
        },
        aim);
}

void measure(const std::string& row, const std::vector<std::string>& values) {
    constexpr double aim = 1 / 2.5;
    Array list;
    for (const std::string& value : values) {
        list.append(value);
    }
    const Object tags{{"seg", list}};
    static constexpr boost::urls::grammar::lut_chars allowed(unchanged.data());
    compare(row, {repeated("ours", [=] { return KRAudienceManager::toQueryString(tags); }),
                  joined("floor: memcpy", values,
                         [](std::string& query, const std::string& value) { query += value; }),
                  joined(
                      "Boost.URL", values,
                      [](std::string& query, const std::string& value) {
                          const std::size_t start = query.size();
                          query.resize(start + boost::urls::encoded_size(value, allowed));
                          boost::urls::encode(query.data() + start, query.size() - start, value,
                                              allowed);
                      },
                      aim),
                  joined(
                      "QUrl", values,
                      [](std::string& query, const std::string& value) {
                          query += QUrl::toPercentEncoding(
                                       QString::fromStdString(value),
                                       QByteArray(unchanged.data(), int(unchanged.size())))
                                       .toStdString();
                      },
                      aim),
                  joined(
                      "curl_easy_escape", values,
                      [](std::string& query, const std::string& value) {
                          char* encoded = curl_easy_escape(nullptr, value.data(),
                                                           static_cast<int>(value.size()));
                          query += encoded;
                          curl_free(encoded);
                      },
                      aim)});
}

} // namespace
} // namespace morvellacinto::bench

int main(int count, char** arguments) {
    using namespace morvellacinto::bench;
    measure("1,000 short tags", shortTags());
    measure("one value of 1 MB", oneLargeValue());
    return runComparisons(count, arguments);
}
