// SPDX-License-Identifier: MIT
#include "Inspector.h"

#include "AudienceService.h"
#include "PageFiles.h"

#include "morvellacinto/foundation/Json.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <strings.h>

namespace morvellacinto::service {

namespace {

constexpr std::size_t keptEvents = 100;
constexpr std::size_t largestPost = 1 << 20; // bytes
constexpr std::size_t shownOfToken = 4;      // characters
constexpr auto heartbeat = std::chrono::seconds(1);

constexpr struct {
    const char* path;
    const char* type;
    std::string_view content;
} pageFiles[] = {
    {"/", "text/html; charset=utf-8", pagefiles::index_html},
    {"/page.css", "text/css; charset=utf-8", pagefiles::page_css},
    {"/page.js", "text/javascript; charset=utf-8", pagefiles::page_js},
    {"/data-inventory.md", "text/markdown; charset=utf-8", pagefiles::data_inventory_md},
};

// Other sites reach this port through the developer's browser: by a form, or by a name of theirs
// that they let point here. Neither has this origin.
httplib::Server::HandlerResponse refuseStrangers(const httplib::Request& request,
                                                 httplib::Response& response) {
    const std::string host = request.get_header_value("Host");
    const std::string name = host.substr(0, host.find(':'));
    if ((name == "127.0.0.1" || name == "localhost") &&
        (request.method == "GET" || request.get_header_value("Origin") == "http://" + host)) {
        return httplib::Server::HandlerResponse::Unhandled;
    }
    response.status = 403;
    response.set_content("for the page at http://127.0.0.1 or http://localhost alone\n",
                         "text/plain");
    return httplib::Server::HandlerResponse::Handled;
}

} // namespace

Inspector::Inspector(Scenario& scenario) : scenario_(scenario) {
    // A second request on a connection would be read out of the body of one that was refused.
    server_.set_keep_alive_max_count(1);
    server_.set_payload_max_length(largestPost);
    server_.set_default_headers(
        {{"Content-Security-Policy",
          "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
          "img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
         {"Cross-Origin-Resource-Policy", "same-origin"},
         {"X-Content-Type-Options", "nosniff"},
         {"Cache-Control", "no-store"}});
    server_.set_pre_routing_handler(&refuseStrangers);
    for (const auto& file : pageFiles) {
        server_.Get(file.path, [&file](const auto& /*request*/, httplib::Response& response) {
            response.set_content(file.content.data(), file.content.size(), file.type);
        });
    }
    server_.Get("/events", [this](const auto& /*request*/, httplib::Response& response) {
        response.set_chunked_content_provider(
            "text/event-stream",
            [this, next = std::size_t{0}](std::size_t, httplib::DataSink& sink) mutable {
                const std::string event = awaitEvent(next);
                return sink.write(event.data(), event.size());
            });
    });
    server_.Post("/answers", [this](const httplib::Request& request, httplib::Response& response) {
        decide(request, response);
    });
    publish({});
}

void Inspector::show(const Upload& upload, const Answer* answer) {
    const Object record = upload.record();
    Object headers = record.at("headers").asObject();
    std::string token;
    for (const Object::Member& header : record.at("headers").asObject()) {
        if (strcasecmp(std::string(header.key()).c_str(), "API_TOKEN") == 0) {
            token = header.value.asString();
            headers.remove(header.key());
        }
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    // The body as it came, because numbers that were read have lost their decimals.
    Object shown{
        {"milliseconds", std::chrono::duration_cast<std::chrono::milliseconds>(now).count()},
        {"source", upload.source},
        {"headers", headers},
        {"body", record.contains("text") ? record.at("text") : Value(upload.body)}};
    if (!token.empty()) {
        shown.set("token",
                  "…" + token.substr(token.size() - std::min(shownOfToken, token.size() / 2)));
    }
    if (answer != nullptr) {
        shown.set("status", answer->status);
        shown.set("answer", answer->location.value_or(answer->body));
    }
    publish({{"upload", shown}});
}

Value Inspector::tags() const {
    const std::lock_guard lock(mutex_);
    return tags_;
}

// The body holds "steps" of a scenario, which replace those that wait, or "tags".
void Inspector::decide(const httplib::Request& request, httplib::Response& response) {
    try {
        const Value wish = readJson(request.body).value_or(Value());
        if (const Value* steps = wish.asObject().find("steps")) {
            scenario_.replace(steps->asArray());
        }
        if (const Value* tags = wish.asObject().find("tags")) {
            const std::lock_guard lock(mutex_);
            tags_ = *tags;
        }
        publish({});
        response.status = 204;
    } catch (const std::exception& error) {
        response.status = 400;
        response.set_content(error.what(), "text/plain; charset=utf-8");
    }
}

// What decides about the next answers goes with every event, so that the latest alone tells it.
void Inspector::publish(Object event) {
    const std::lock_guard lock(mutex_);
    event.set("steps", scenario_.waiting());
    event.set("tags", tags_);
    events_.push_back("data: " + writeJson(event) + "\n\n");
    if (events_.size() > keptEvents) {
        events_.pop_front();
        ++forgotten_;
    }
    published_.notify_all();
}

// The event of that number, or a comment, which finds out whether the browser is still there.
std::string Inspector::awaitEvent(std::size_t& next) {
    std::unique_lock lock(mutex_);
    const auto isThere = [&] { return next < forgotten_ + events_.size(); };
    if (!published_.wait_for(lock, heartbeat, isThere)) {
        return ":\n\n";
    }
    next = std::max(next, forgotten_);
    return events_[next++ - forgotten_];
}

} // namespace morvellacinto::service
