// Writes HTML. Whatever is not a literal of the program is escaped: texts from the logs cannot
// become markup, because only character arrays are written as they are. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class RPHtml {
public:
    // Writes a literal as it is.
    template <std::size_t kSize>
    RPHtml &operator<<(const char (&markup)[kSize])
    {
        text_.append(markup, kSize - 1);
        return *this;
    }
    // Write any other text escaped, for the content of an element or a quoted attribute. Control
    // characters, and those that change the direction of text, are shown by their codes.
    RPHtml &operator<<(std::string_view text);
    RPHtml &operator<<(const std::string &text) { return *this << std::string_view(text); }

    // Writes a number with thin spaces between groups of three digits.
    RPHtml &operator<<(std::int64_t number);

    // Writes the HTML that another writer has collected.
    RPHtml &operator<<(const RPHtml &other)
    {
        text_ += other.text_;
        return *this;
    }

    [[nodiscard]] const std::string &text() const { return text_; }

private:
    std::string text_;
};
