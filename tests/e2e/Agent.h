// One run of the built agent: its proxy configuration, hits file and server root in a directory of
// their own, its output captured. What its tests share.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Process.h"
#include "ScriptedPeer.h"
#include "TempDir.h"

inline constexpr Millis kRunDeadline{60000};

class Agent {
public:
    // Writes "proxy.conf": an updateproxy line for `proxyPort`, then `directives`; and the hits
    // file of the server root "@dir@". Both texts as expand() takes them.
    Agent(std::uint16_t proxyPort, const std::string &directives, const std::string &hits = "");

    // `text` with a line end for "; ", the directory for "@dir@" and the proxy's address for
    // "@peer@".
    [[nodiscard]] std::string expand(std::string text) const;

    // Starts the agent with these options only; or with "-vv -r" and the configuration before them.
    void startWith(const std::vector<std::string> &options);
    void start(std::vector<std::string> options = {});
    // Waits for its end; expects exit status 0.
    Process::Result finish();
    void run(const std::vector<std::string> &options = {});

    // How often `text` occurs in the trace.
    [[nodiscard]] int traced(const std::string &text) const;

    TempDir dir;
    std::unique_ptr<Process> process;

private:
    const std::string peer_;
};

// Targets "http://h/0" and so on, and the directives that seed them.
std::vector<std::string> targets(int count);
std::string seeds(int count);

// Answers nothing before `count` requests have come: so many workers are then at work.
ScriptedPeer::Handler replyOnce(std::size_t count);

// What every table row begins with; CTest shows the name.
struct Row {
    const char *name;

    friend std::ostream &operator<<(std::ostream &out, const Row &row) { return out << row.name; }
};
inline constexpr auto rowName = [](const auto &row) -> std::string { return row.param.name; };
