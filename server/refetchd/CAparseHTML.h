// The sink of HTML pages.
#pragma once

#include "CAparse.h"

// Takes every block of a page and drops it.
class CAParseHTML : public CAParser {
public:
    explicit CAParseHTML(CAURL *url);
    CAParseHTML(CAURL *url, HTThreadContext *threadContext);

    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;
};
