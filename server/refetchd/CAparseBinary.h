// The sink of bodies that are to be kept as files.
#pragma once

#include "CAparse.h"

// Takes every block of a body and drops it.
class CAParseBinary : public CAParser {
public:
    explicit CAParseBinary(CAURL *url);

    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;
};
