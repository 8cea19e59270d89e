// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/transport/RequestExecution.h"

namespace morvellacinto::KRNetworkManager {

/// What came with an answer that is parsed by now.
struct AnswerFacts {
    int status = 0;       // of HTTP; 0 when the platform told none
    std::size_t size = 0; // of the body in bytes
};
using AnswerCallback = std::function<void(std::optional<Value> answer, const AnswerFacts& facts)>;

/// As `request`, for those who want to know more of the answer.
void requestAnswer(const KRRequest& request, AnswerCallback success, ErrorCallback error);

} // namespace morvellacinto::KRNetworkManager
