// The charts of the page, as inline SVG. Positions along a line are percentages, so that a chart
// fits its place without scaling its texts. Any thread.
#pragma once

#include "RPfigures.h"
#include "RPhtml.h"

// The class of a verdict, which gives a shape in a chart its colour.
[[nodiscard]] std::string RPVerdictClass(RPVerdict verdict);

// A swatch in the colour of the verdict, for a legend.
[[nodiscard]] RPHtml RPSwatch(RPVerdict verdict);

// What the charts refer to. Must be in the page once, before them.
[[nodiscard]] RPHtml RPChartPatterns();

// One bar: the shares of the verdicts on requests, which are not all 0.
[[nodiscard]] RPHtml RPVerdictBar(const RPCounts &counts);

// A column a night: its requests, stacked by verdict; and the duration of its runs.
[[nodiscard]] RPHtml RPRequestColumns(const std::vector<RPNight> &nights);
[[nodiscard]] RPHtml RPDurationColumns(const std::vector<RPNight> &nights);
