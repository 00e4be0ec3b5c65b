// The summary page of a run. Only its frame is written so far.
#include <cstdio>

#include "CArun.h"
#include "CAtrace.h"

void CASummary()
{
    FILE *const page = ac.reportStream;
    if (page == nullptr) {
        return;
    }
    CATrace("Now writing Automatic Cache Refresh Summary file!\n");
    std::fprintf(page, "<html>\n<head>\n   <title>%s</title>\n",
                 CAMessage(942, "Automatic Cache Refresh Summary"));
    std::fprintf(page, "<meta name=\"GENERATOR\" content=\"Quillmark\">\n</head>\n");
    std::fprintf(page,
                 "<body background=\"/zuicons/statusBG.jpg\">\n\n<center><h2>%s</h2></center>\n",
                 CAMessage(943, "Automatic Cache Refresh Summary"));
    std::fprintf(page, "\n<center>\n</body></html>\n");
}
