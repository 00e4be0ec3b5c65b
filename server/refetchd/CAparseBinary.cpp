#include "CAparseBinary.h"

CAParseBinary::CAParseBinary(CAURL *url) : CAParser(url) {}

std::int32_t CAParseBinary::consume(char * /*data*/, std::int32_t length,
                                    std::int32_t * /*finished*/, std::int32_t * /*closeConnection*/)
{
    return length;
}
