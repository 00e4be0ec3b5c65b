// Linked pages for a scripted peer to serve.
#pragma once

#include <string>

#include "ScriptedPeer.h"

// As Reply::ok(), of type text/html.
inline Reply htmlPage(const std::string &body)
{
    Reply reply = Reply::ok(body);
    std::string &bytes = reply.pieces.front().bytes;
    bytes.replace(bytes.find("plain"), 5, "html");
    return reply;
}
