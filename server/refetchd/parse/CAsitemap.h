// Reads what a site says about its URLs: sitemaps and indexes of sitemaps, in XML or as plain text,
// RSS and Atom feeds, and the "Sitemap:" lines of a robots.txt. From bytes to entries; it knows
// neither URLs nor the agent. An object belongs to one thread.
//
// All bounds are those of the sitemap protocol or generous: hostile bytes cost no more memory than
// some megabytes (16 MiB for the parser of XML, 4 MiB for an entry), and time in proportion to
// their length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// One entry, with the texts as the file has them, without blanks around them; "" for one that is
// missing.
struct CASitemapEntry {
    std::string url;                 // may be missing when there are links
    std::vector<std::string> links;  // further URLs of the entry: alternates and images
    std::string date;                // when it changed last
    std::string priority;
    std::string changefreq;
    bool isSitemap = false;  // the URL is that of another sitemap
};

class CASitemapSink {
public:
    CASitemapSink() = default;
    virtual ~CASitemapSink() = default;
    CASitemapSink(const CASitemapSink &) = delete;
    CASitemapSink &operator=(const CASitemapSink &) = delete;

    virtual void entry(const CASitemapEntry &entry) = 0;
};

class CASitemapForm;

// What the forms of files share.
struct CASitemapState {
    CASitemapSink *const sink;
    const bool takesImages;
    bool isDone = false;        // nothing more is read
    std::string fault = {};     // why not, or what was wrong at the end
    std::size_t entries = 0;    // as the file has them
    std::size_t urls = 0;       // of the entries of XML, with links
    std::size_t tooLong = 0;    // URLs that were dropped because of their length
    std::size_t badUrls = 0;    // dropped as well: not of http or https, or not readable
    std::size_t moreLinks = 0;  // dropped as well: beyond the number for one entry
    std::size_t skippedLines = 0;

    void stop(std::string why);
    // Counts an entry; false, and stops, when there are too many.
    [[nodiscard]] bool countEntry();
};

class CASitemapReader {
public:
    static constexpr std::size_t kMostBytes = 52428800;
    static constexpr std::size_t kMostEntries = 50000;
    static constexpr std::size_t kMostLinks = 1000;       // of one entry
    static constexpr std::size_t kMostUrls = 200000;      // of all entries, with links
    static constexpr std::size_t kMostMemory = 16777216;  // bytes for the parser of XML
    static constexpr std::size_t kLongestValue = 4095;
    static constexpr std::size_t kLongestToken = 1048576;
    static constexpr std::size_t kDeepest = 100;
    static constexpr std::size_t kMostOfRobots = 512000;  // bytes
    static constexpr std::size_t kMostRobotsLines = 100;  // that name sitemaps

    enum class Body : std::uint8_t { Sitemap, Robots };

    // `sink` is called for each entry, from read() and end(). Images are entries' links only if
    // `takesImages`.
    CASitemapReader(CASitemapSink *sink, Body body, bool takesImages);
    ~CASitemapReader();
    CASitemapReader(const CASitemapReader &) = delete;
    CASitemapReader &operator=(const CASitemapReader &) = delete;

    // The next bytes, in blocks of any size: entries and faults do not depend on it.
    void read(std::string_view bytes);
    // The end of the file; `isWhole` is false when it was cut off. To be called once.
    void end(bool isWhole);

    // True when the rest of the file is not needed.
    [[nodiscard]] bool isDone() const { return state_.isDone; }
    // What is wrong with the file, such as "line 3: not well-formed: mismatched tag"; empty:
    // nothing. What was read before it stays. Complete after end().
    [[nodiscard]] const std::string &fault() const { return state_.fault; }
    [[nodiscard]] std::size_t entries() const { return state_.entries; }
    [[nodiscard]] std::size_t tooLong() const { return state_.tooLong; }
    // Lines of a text that are not URLs of http or https, and URLs in XML with control characters
    // or with references to entities that are not declared in the file.
    [[nodiscard]] std::size_t badUrls() const { return state_.badUrls; }
    // Links beyond kMostLinks of an entry.
    [[nodiscard]] std::size_t moreLinks() const { return state_.moreLinks; }

private:
    // A parser of XML begins again with each block in a token that has not ended: large blocks keep
    // that cheap.
    static constexpr std::size_t kBlock = 65536;

    void flush();
    void chooseForm();

    const Body body_;
    CASitemapState state_;
    std::string block_;     // bytes that were not parsed yet
    std::size_t seen_ = 0;  // bytes so far
    std::unique_ptr<CASitemapForm> form_;
};
