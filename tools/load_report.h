#ifndef TAV_TOOLS_LOAD_REPORT_H
#define TAV_TOOLS_LOAD_REPORT_H

#include "tools/load_run.h"

#include <string>

namespace tav {
namespace tool {

/// What came of a load, for people and for machines; each with its last line end.
std::string reportOf(LoadPlan const & plan, LoadResult const & result);
std::string jsonReportOf(LoadPlan const & plan, LoadResult const & result);

/// Stands in the first lines of each picture.
extern char const plotMark[];

/// The latencies by percentile, as a picture in SVG.
std::string plotOf(LoadPlan const & plan, LoadResult const & result);

} // namespace tool
} // namespace tav

#endif
