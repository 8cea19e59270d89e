#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace morvellacinto::native {

/// A program that a test runs: its standard output can be read line by line, and it is killed, with
/// all that it has started, at the latest when the test ends.
class Child {
public:
    explicit Child(const std::vector<std::string>& command);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    /// The next line, or an empty text at the output's end.
    [[nodiscard]] std::string readLine() const;
    void signal(int number) const;

private:
    pid_t process_ = -1;
    int output_ = -1;
};

} // namespace morvellacinto::native
