// Links and redirections as browsers resolve them.
#include <fstream>

#include "AgentTest.h"
#include "Feed.h"
#include "HTMemory.h"
#include "parse/CAparseHTTP11.h"
#include "url/CAweb.h"

namespace {

// The next field of a row of web_cases.txt, which has the escapes.
std::string takeField(std::string *row)
{
    std::string field;
    const std::size_t tab = std::min(row->find('\t'), row->size());
    for (std::size_t i = 0; i < tab; ++i) {
        if ((*row)[i] != '\\') {
            field += (*row)[i];
            continue;
        }
        const char c = (*row)[++i];
        if (c == 'x') {
            field += static_cast<char>(std::stoi(row->substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            field += c == 't' ? '\t' : c == 'n' ? '\n' : c == 'r' ? '\r' : c == 's' ? ' ' : c;
        }
    }
    row->erase(0, tab + 1);
    return field;
}

std::string textOf(const CAWebResult &result)
{
    const auto &[protocol, host, path] = result.parts;
    const bool isOther = result.fault == CAWebFault::OtherScheme || protocol == "ftp";
    if (isOther || host.empty()) {
        return isOther ? "other" : "-";
    }
    return std::string(protocol) + "://" + std::string(host) + std::string(path);
}

TEST(CAweb, LinkBecomesAnotherUrlThanInBrowsers)
{
    std::ifstream rows(SOURCE_DIRECTORY "/tests/agent/web_cases.txt");
    int count = 0;
    for (std::string row; std::getline(rows, row);) {
        if (row.empty() || row.starts_with('#')) {
            continue;
        }
        ++count;
        SCOPED_TRACE(row);
        HTPool pool;
        const CAWebResult base = CAResolveWeb(takeField(&row), {}, &pool);
        const CAWebResult result = CAResolveWeb(takeField(&row), base.parts, &pool);
        EXPECT_EQ(textOf(result), takeField(&row));
    }
    EXPECT_GT(count, 250);
}

struct ResponseRow : Row {
    const char *url;       // of the response, a seed
    std::string response;  // what follows "HTTP/1.0 "
    std::vector<std::string> web;
    std::vector<std::string> plain;  // without `modernlinks`
};

class WebResponse : public AgentTestWith<ResponseRow> {};

TEST_P(WebResponse, LeadsToOtherUrlsThanInBrowsers)
{
    for (const bool isModern : {true, false}) {
        configure(isModern ? "delvedepth 1\ncachequeries on\nmodernlinks on\n"
                           : "modernlinks off\n");
        CAForgetAllProcessed();
        CAURL url(GetParam().url);
        const auto parser = CANewResponseParser(&url, HTThread_context(), ac.parseOptions);
        feed(parser.get(), "HTTP/1.0 " + GetParam().response, {});
        EXPECT_EQ(AgentState::drain(), isModern ? GetParam().web : GetParam().plain);
    }
}

std::string page(const std::string &text)
{
    return "200 OK\r\nContent-type: text/html\r\nContent-Length: " + std::to_string(text.size()) +
           "\r\n\r\n" + text;
}

std::string moved(const std::string &location)
{
    return "302 Found\r\nLocation: " + location + "\r\n\r\n";
}

const ResponseRow kResponses[] = {
    {"SeedAsItIsWritten",
     "http://H:80//a b//c",
     page("<a href='f //g'><img src='?h'><a href='HTTP:i'>"),
     {"1 http://h/a%20b/f%20//g", "0 http://h/a%20b/c?h", "1 http://h/a%20b/i"},
     {"1 http://H/a b/f /g", "0 http://H/a b/?h"}},
    {"Base",
     "http://h/p",
     page("<base href='//h/b//'><base href=/x/><a href='c'>"),
     {"1 http://h/b//c"},
     {"1 http://h/c"}},
    {"BaseThatIsNone",
     "http://h/d/p",
     page("<base href='javascript:x'><a href='c '>"),
     {"1 http://h/d/c"},
     {"1 http://h/d/c"}},
    {"OtherHost",
     "http://h/",
     page("<frame src='//h:80/a'><frame src='//x/a'>"),
     {"0 http://h/a"},
     {"0 http://h/h:80/a", "0 http://h/x/a"}},
    {"NoUrl",
     "http://h/",
     page("<frame src='http://a b/'><frame src='data:x'><frame src='http://h:99999/'>"),
     {},
     {}},
    {"SeedWithoutHost",
     "/a//b c",
     page("<frame src='d e'><frame src='//h/i'>"),
     {"0 /a/d%20e"},
     {"0 /a/d e", "0 /h/i"}},
    {"Moved",
     "http://H.test/a",
     moved("//H.TEST/b c//?\xC3\xA9\xE9"),
     {"0 http://h.test/b%20c//?%C3%A9%E9"},
     {"0 http://H.test/H.TEST/b c/?\xC3\xA9\xE9"}},
    {"QueryInTheCharsetOfThePage",
     "http://h/",
     page("<meta charset=latin1><frame src='/\xE9?\xE9&#x10FF;&eacute;'>"),
     {"0 http://h/%C3%A9?%E9%26%234351%3B%E9"},
     {"0 http://h/\xE9?\xE9&"}},
    {"MovedNowhere", "http://h/a", moved("http://"), {}, {}},
};
INSTANTIATE_TEST_SUITE_P(CAweb, WebResponse, testing::ValuesIn(kResponses), rowName);

}  // namespace
