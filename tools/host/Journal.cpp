// SPDX-License-Identifier: MIT
#include "Journal.h"

#include "ExitStatus.h"

#include "morvellacinto/foundation/Json.h"

#include <iostream>

namespace morvellacinto::host {

Journal::Journal(bool isVerbose, const std::optional<std::filesystem::path>& traceFile)
    : isVerbose_(isVerbose) {
    if (traceFile) {
        trace_.open(*traceFile);
        if (!trace_) {
            throw UsageError("--trace: \"" + traceFile->string() + "\" cannot be written");
        }
        trace_ << "[\n";
    }
}

Journal::~Journal() {
    if (trace_.is_open() && !(trace_ << "\n]\n").flush()) {
        std::cerr << "note: the trace was not written whole\n";
    }
}

void Journal::write(const platform::Diagnostic& record) {
    const auto now =
        std::chrono::duration_cast<Microseconds>(std::chrono::steady_clock::now() - start_);
    Object line{{"time", std::chrono::duration<double>(now).count()}};
    const Object facts = objectOf(record);
    for (const Object::Member& fact : facts) {
        line.set(fact.key(), fact.value);
    }
    const std::lock_guard lock(mutex_);
    if (isVerbose_) {
        std::cerr << writeJson(line) + '\n';
    }
    if (trace_.is_open()) {
        addEvent({{"name", facts.at("event")},
                  {"ph", "i"},
                  {"s", "p"},
                  {"ts", now.count()},
                  {"pid", 1},
                  {"tid", 1},
                  {"args", facts}});
        if (const auto* answer = std::get_if<platform::AnswerCome>(&record);
            answer != nullptr && answer->timings) {
            const platform::HttpTimings& at = *answer->timings;
            const Microseconds start = now - at.lastByte; // it came this moment
            const auto connected = std::max(at.connection, at.tls);
            addSpan("request", start, now);
            addSpan("name", start, start + at.name);
            addSpan("connection", start + at.name, start + at.connection);
            addSpan("TLS", start + at.connection, start + connected);
            addSpan("service", start + connected, start + at.firstByte);
            addSpan("answer", start + at.firstByte, now);
        }
    }
}

void Journal::addSpan(std::string_view name, Microseconds begin, Microseconds end) {
    if (end > begin) {
        addEvent({{"name", name},
                  {"ph", "X"},
                  {"ts", begin.count()},
                  {"dur", (end - begin).count()},
                  {"pid", 1},
                  {"tid", 1}});
    }
}

void Journal::addEvent(const Object& event) {
    trace_ << (isFirst_ ? "" : ",\n") << writeJson(event);
    isFirst_ = false;
}

} // namespace morvellacinto::host
