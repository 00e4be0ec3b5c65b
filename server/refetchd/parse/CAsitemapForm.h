// The forms of files that CASitemapReader reads. An object belongs to the reader that makes it.
#pragma once

#include <memory>
#include <string_view>

#include "parse/CAsitemap.h"

class CASitemapForm {
public:
    explicit CASitemapForm(CASitemapState *state) : state_(state) {}
    virtual ~CASitemapForm() = default;
    CASitemapForm(const CASitemapForm &) = delete;
    CASitemapForm &operator=(const CASitemapForm &) = delete;

    // Neither is called once the state is done.
    virtual void read(std::string_view bytes) = 0;
    virtual void end(bool isWhole) = 0;

protected:
    CASitemapState *const state_;
};

// `state` is that of the reader, and outlives the form. A sitemap as a text, a URL a line; a
// robots.txt; and everything in XML.
std::unique_ptr<CASitemapForm> CANewTextSitemap(CASitemapState *state);
std::unique_ptr<CASitemapForm> CANewRobots(CASitemapState *state);
std::unique_ptr<CASitemapForm> CANewXmlSitemap(CASitemapState *state);
