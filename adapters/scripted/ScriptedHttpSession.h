#pragma once

#include "morvellacinto/platform/HttpSession.h"

#include <cstddef>
#include <memory>

namespace morvellacinto::scripted {

class ScriptedHttpService;

/// A handle on the service; its public members are the service's, guarded by the service's mutex.
class ScriptedHttpSession final : public platform::HttpSession,
                                  public std::enable_shared_from_this<ScriptedHttpSession> {
public:
    ScriptedHttpSession(std::shared_ptr<ScriptedHttpService> service, std::size_t number,
                        platform::HttpSessionConfiguration configuration,
                        platform::HttpSessionDelegate* delegate);

    [[nodiscard]] std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest request,
                                                               Completion completion) override;
    void finishTasksAndInvalidate() override;

    const std::shared_ptr<ScriptedHttpService> service;
    const std::size_t number;
    const platform::HttpSessionConfiguration configuration;
    platform::HttpSessionDelegate* delegate; // null once invalidated and idle
    int invalidationCount = 0;
};

/// Likewise.
class ScriptedHttpTask final : public platform::HttpTask,
                               public std::enable_shared_from_this<ScriptedHttpTask> {
public:
    ScriptedHttpTask(std::shared_ptr<ScriptedHttpSession> session, platform::HttpRequest request,
                     std::size_t record);

    void resume() override;

    const std::shared_ptr<ScriptedHttpSession> session;
    const platform::HttpRequest request;
    const std::size_t record; ///< index of its record
    platform::HttpSession::Completion completion;
    bool isStarted = false;
    bool isWaiting = false; ///< for an answer by hand
};

} // namespace morvellacinto::scripted
