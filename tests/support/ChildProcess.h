// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace morvellacinto::testing {

struct Finished {
    int status = 0; ///< of its exit; -1 when a signal ended it
    std::string output;
    std::string errors;
};

/// A program that runs beside the test, killed with all that it has started when this object goes,
/// or the thread that made it.
class ChildProcess {
public:
    /// The program's path first. Standard input holds `input`.
    explicit ChildProcess(const std::vector<std::string>& command, const std::string& input = {});
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// The next line of standard output, without its end; what there is when the output ends.
    [[nodiscard]] std::string readLine();
    void send(int signal) const;
    /// Waits for the program's end; the output is what `readLine` has not taken.
    [[nodiscard]] Finished finish();

private:
    pid_t pid_ = -1;
    int output_ = -1;
    int errors_ = -1;
};

} // namespace morvellacinto::testing
