#pragma once

// Small, bounded reads of a /proc tree. The root is a parameter so that tests can lay out a tree of
// their own; the tool itself always reads "/proc".

#include <string>
#include <sys/types.h>

namespace bridge {

struct Process {
    pid_t pid = 0;
    pid_t ppid = 0;
    pid_t session = 0;
    int ttyNr = 0;
    char comm[32] = {};
};

// The process's stat line, parsed; false when it is gone or the line doesn't parse.
bool readProcess(const std::string& root, pid_t pid, Process& out);

// The target of a link under the process's entry ("cwd", "fd/0"); empty when unreadable.
std::string readLink(const std::string& root, pid_t pid, const char* name);

// At most `limit` bytes of a file under the process's entry ("cmdline", "environ").
std::string readEntry(const std::string& root, pid_t pid, const char* name, size_t limit);

} // namespace bridge
