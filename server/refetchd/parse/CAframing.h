// Where the body of an HTTP/1.1 response ends: RFC 9112, section 6. Knows header fields only; any
// thread.
#pragma once

#include <cstdint>
#include <string_view>

// Takes the header fields of one response, then says how its body is delimited.
class CAFraming {
public:
    enum class Body : std::uint8_t {
        None,
        Length,      // length() bytes
        Chunked,     // chunks, the last of which has size 0
        UntilClose,  // all bytes up to the end of the connection
    };

    // Takes one field into account; `name` is without the colon, `value` without blanks around it.
    // Fields that say nothing about the body are ignored.
    void add(std::string_view name, std::string_view value);

    // Decides, when all fields were added. `isKeptByDefault` says that the response's version keeps
    // connections unless it asks to close them, as HTTP/1.1 does. False when the lengths conflict,
    // or one is no number: the body has no known end then.
    [[nodiscard]] bool decide(std::int32_t status, bool isKeptByDefault);

    // Valid after decide().
    [[nodiscard]] Body body() const { return body_; }
    [[nodiscard]] std::int64_t length() const { return length_; }
    // The connection may carry another request after this response.
    [[nodiscard]] bool keepsConnection() const { return keepsConnection_; }

private:
    void addLengths(std::string_view value);
    void addTransferCodings(std::string_view value);
    void addConnectionOptions(std::string_view value);

    std::int64_t length_ = -1;  // -1: no Content-Length
    bool hasBadLength_ = false;
    bool isTransferCoded_ = false;
    bool endsInChunks_ = false;  // chunked is the last of the transfer codings
    bool asksToClose_ = false;
    bool asksToKeep_ = false;
    bool keepsConnection_ = false;
    Body body_ = Body::None;
};
