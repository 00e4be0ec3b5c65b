// One run of the built agent: its proxy configuration, hits file and server root in a directory of
// their own, its output captured. What its tests share.
#pragma once

#include <gmock/gmock.h>

#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Process.h"
#include "Row.h"
#include "ScriptedPeer.h"
#include "TempDir.h"

inline constexpr Millis kRunDeadline{60000};
inline const std::string kReport = "pub/de_DE/reports/refetchd.html";

// Replaces all occurrences; how many there were.
inline int replaceAll(std::string *text, const std::string &from, const std::string &to)
{
    int count = 0;
    for (std::size_t at = 0; (at = text->find(from, at)) != std::string::npos; ++count) {
        text->replace(at, from.size(), to);
        at += to.size();
    }
    return count;
}

inline Words split(const std::string &text)
{
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

class Agent {
public:
    // Writes "proxy.conf": an updateproxy line for `proxyPort`, then `directives`; and the hits
    // file of the server root "@dir@", unless it is empty. Both texts as expand() takes them.
    Agent(std::uint16_t proxyPort, const std::string &directives, const std::string &hits = "")
        : peer_("127.0.0.1:" + std::to_string(proxyPort))
    {
        dir.write("pub/de_DE/reports/keep", "");
        if (!hits.empty()) {
            dir.write("logs/hitsfile.txt", expand(hits));
        }
        dir.write("proxy.conf", expand("updateproxy @peer@; " + directives + "\n"));
    }

    // `text` with a line end for "; ", the directory for "@dir@" and the proxy for "@peer@".
    [[nodiscard]] std::string expand(std::string text) const
    {
        replaceAll(&text, "; ", "\n");
        replaceAll(&text, "@dir@", dir.path());
        replaceAll(&text, "@peer@", peer_);
        return text;
    }

    // Starts a program in the directory; the agent, which has a wrapper, with these options; or
    // with the trace on and the configuration read as well.
    void startProgram(const std::string &command)
    {
        process = std::make_unique<Process>(
            split("--chdir=" + dir.path() + " LC_ALL=de_DE.UTF-8 " + command));
    }
    void startWith(const std::string &options)
    {
        startProgram(wrapper + " " REFETCHD_BINARY " " + options);
    }
    void start(const std::string &options = "") { startWith("-vv -r proxy.conf " + options); }
    // Waits for its end; expects the exit status.
    void finish(int status = 0)
    {
        EXPECT_EQ(process->wait(kRunDeadline), status) << process->err();
    }
    void run(const std::string &options = "")
    {
        start(options);
        finish();
    }

    [[nodiscard]] std::string report() const { return dir.read(kReport); }
    // How often `text` occurs in the trace.
    [[nodiscard]] int traced(const std::string &text) const
    {
        std::string trace = process->err();
        return replaceAll(&trace, expand(text), "");
    }

    TempDir dir;
    std::string wrapper;  // a program, with its options, that starts the agent
    std::unique_ptr<Process> process;

private:
    const std::string peer_;
};

// Targets "http://h/0" and so on, and the directives that seed them.
inline Words targets(int count)
{
    Words result;
    for (int number = 0; number < count; ++number) {
        result.push_back("http://h/" + std::to_string(number));
    }
    return result;
}
inline std::string seeds(int count)
{
    std::string lines;
    for (const std::string &target : targets(count)) {
        lines += "loadurl " + target + "\n";
    }
    return lines;
}

// A peer that ignores connections: its backlog is full, because one agent has already connected.
struct FullBacklog {
    FullBacklog()
    {
        first.start();
        EXPECT_TRUE(first.process->waitForError("Net......... requesting", kRunDeadline));
    }

    const ScriptedPeer peer{nullptr};
    Agent first{peer.port(), "readtimeout 60; loadurl h/"};
};

// Answers requests with these replies in turn, and all later ones with a plain one.
inline ScriptedPeer::Handler inTurn(std::vector<Reply> replies)
{
    return [replies = std::move(replies)](const ScriptedPeer &self, const ScriptedPeer::Request &) {
        const std::size_t number = self.requests().size() - 1;
        return number < replies.size() ? replies[number] : Reply::ok();
    };
}
