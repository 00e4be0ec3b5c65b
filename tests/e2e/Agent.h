// One run of the built agent: its proxy configuration, hits file and server root in a directory of
// their own, its output captured. What its tests share.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Process.h"
#include "Row.h"
#include "ScriptedPeer.h"
#include "TempDir.h"

inline constexpr Millis kRunDeadline{60000};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;  // takes memory and addresses of its own
#else
inline constexpr bool kSanitized = false;
#endif

class Agent {
public:
    // Writes "proxy.conf": an updateproxy line for `proxyPort`, then `directives`; and the hits
    // file of the server root "@dir@". Both texts as expand() takes them.
    Agent(std::uint16_t proxyPort, const std::string &directives, const std::string &hits = "")
        : peer_("127.0.0.1:" + std::to_string(proxyPort))
    {
        dir.write("pub/de_DE/reports/keep", "");
        dir.write("logs/hitsfile.txt", expand(hits));
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

    // Starts the agent in the directory with these options only, blanks between them; or with the
    // trace on and the configuration read as well.
    void startWith(const std::string &options)
    {
        std::vector<std::string> words = {"--chdir=" + dir.path(), "LC_ALL=de_DE.UTF-8"};
        std::istringstream split(wrapper + " " REFETCHD_BINARY " " + options);
        for (std::string word; split >> word;) {
            words.push_back(word);
        }
        process = std::make_unique<Process>(words);
    }
    void start(const std::string &options = "") { startWith("-vv -r proxy.conf " + options); }
    // Waits for its end; expects the exit status.
    Process::Result finish(int status = 0)
    {
        const Process::Result result = process->wait(kRunDeadline);
        EXPECT_EQ(result.status, status) << "signal " << result.signal << "\n" << process->err();
        return result;
    }
    void run(const std::string &options = "")
    {
        start(options);
        finish();
    }

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
    static int replaceAll(std::string *text, const std::string &from, const std::string &to)
    {
        int count = 0;
        for (std::size_t at = 0; (at = text->find(from, at)) != std::string::npos; ++count) {
            text->replace(at, from.size(), to);
            at += to.size();
        }
        return count;
    }

    const std::string peer_;
};

// Targets "http://h/0" and so on.
inline std::vector<std::string> targets(int count)
{
    std::vector<std::string> result;
    for (int number = 0; number < count; ++number) {
        result.push_back("http://h/" + std::to_string(number));
    }
    return result;
}

// The directives that seed them.
inline std::string seeds(int count)
{
    std::string lines;
    for (const std::string &target : targets(count)) {
        lines += "loadurl " + target + "\n";
    }
    return lines;
}
