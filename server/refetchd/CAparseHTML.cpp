#include "CAparseHTML.h"

CAParseHTML::CAParseHTML(CAURL *url) : CAParser(url) {}

CAParseHTML::CAParseHTML(CAURL *url, HTThreadContext *threadContext) : CAParser(url, threadContext)
{
}

std::int32_t CAParseHTML::consume(char *data, std::int32_t length, std::int32_t * /*finished*/,
                                  std::int32_t * /*closeConnection*/)
{
    return data == nullptr ? 0 : length;
}
