// SPDX-License-Identifier: MIT
#include "support/ChildProcess.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <system_error>

namespace morvellacinto::testing {

namespace {

std::string readAll(int descriptor) {
    std::string text;
    std::array<char, 4096> buffer;
    ssize_t count = 0;
    while ((count = read(descriptor, buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& input)
    : errors_(memfd_create("errors", MFD_CLOEXEC)) {
    const int in = memfd_create("input", MFD_CLOEXEC);
    const auto size = write(in, input.data(), input.size());
    lseek(in, 0, SEEK_SET);
    std::array<int, 2> ends{};
    if (size != std::ssize(input) || pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), command.front());
    }
    output_ = ends[0];
    std::vector<char*> words;
    for (const std::string& word : command) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(in, STDIN_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        dup2(errors_, STDERR_FILENO);
        execv(words[0], words.data());
        _exit(127);
    }
    setpgid(pid_, pid_); // whoever of both comes first
    close(in);
    close(ends[1]);
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {
        kill(-pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(output_);
    close(errors_);
}

std::string ChildProcess::readLine() {
    std::string line;
    char letter = 0;
    while (read(output_, &letter, 1) == 1 && letter != '\n') {
        line += letter;
    }
    return line;
}

void ChildProcess::send(int signal) const { kill(pid_, signal); }

Finished ChildProcess::finish() {
    Finished finished;
    finished.output = readAll(output_);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    lseek(errors_, 0, SEEK_SET);
    finished.errors = readAll(errors_);
    return finished;
}

} // namespace morvellacinto::testing
