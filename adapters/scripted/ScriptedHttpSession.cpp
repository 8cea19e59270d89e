#include "ScriptedHttpSession.h"

#include "ScriptedHttpService.h"

#include <utility>

namespace morvellacinto::scripted {

ScriptedHttpSession::ScriptedHttpSession(std::shared_ptr<ScriptedHttpService> itsService,
                                         std::size_t itsNumber,
                                         platform::HttpSessionConfiguration itsConfiguration,
                                         platform::HttpSessionDelegate* itsDelegate)
    : service(std::move(itsService)), number(itsNumber), configuration(std::move(itsConfiguration)),
      delegate(itsDelegate) {}

std::shared_ptr<platform::HttpTask> ScriptedHttpSession::dataTask(platform::HttpRequest request,
                                                                  Completion completion) {
    return service->makeTask(shared_from_this(), std::move(request), std::move(completion));
}

void ScriptedHttpSession::finishTasksAndInvalidate() { service->invalidate(*this); }

ScriptedHttpTask::ScriptedHttpTask(std::shared_ptr<ScriptedHttpSession> itsSession,
                                   platform::HttpRequest itsRequest, std::size_t itsRecord)
    : session(std::move(itsSession)), request(std::move(itsRequest)), record(itsRecord) {}

void ScriptedHttpTask::resume() { session->service->start(shared_from_this()); }

} // namespace morvellacinto::scripted
