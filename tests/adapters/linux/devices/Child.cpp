#include "Child.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace morvellacinto::native {

Child::Child(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0 || (process_ = fork()) < 0) {
        throw std::runtime_error("cannot run " + command.front());
    }
    if (process_ == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execv(arguments.front(), arguments.data());
        _exit(127);
    }
    setpgid(process_, process_); // whoever of both comes first
    close(ends[1]);
    output_ = ends[0];
}

Child::~Child() {
    close(output_);
    kill(-process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

std::string Child::readLine() const {
    std::string line;
    char c = 0;
    while (read(output_, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

void Child::signal(int number) const { kill(process_, number); }

} // namespace morvellacinto::native
