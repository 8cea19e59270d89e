// SPDX-License-Identifier: MIT
#pragma once

#include "Scenario.h"

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

namespace morvellacinto::service {

struct Answer;
struct Upload;

/// A page over plain http on 127.0.0.1 that shows each upload and decides how the next ones are
/// answered. The token never gets there whole. Any thread.
class Inspector {
public:
    /// `scenario` must live as long.
    explicit Inspector(Scenario& scenario);

    /// The server of the page, to be bound and run.
    [[nodiscard]] httplib::Server& server() { return server_; }

    /// Tells the page of an upload and how it is answered. `answer` is null when the connection is
    /// cut instead.
    void show(const Upload& upload, const Answer* answer);

    /// What the page wants in place of the answer's "tags"; null for those that it has.
    [[nodiscard]] Value tags() const;

private:
    void decide(const httplib::Request& request, httplib::Response& response);
    void publish(Object event);
    [[nodiscard]] std::string awaitEvent(std::size_t& next);

    Scenario& scenario_;
    mutable std::mutex mutex_; // guards what follows, up to the server
    std::condition_variable published_;
    Value tags_;
    std::deque<std::string> events_; // the latest, as they are sent
    std::size_t forgotten_ = 0;      // how many came before them
    httplib::Server server_;
};

} // namespace morvellacinto::service
