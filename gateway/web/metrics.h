// The daemon's figures for those who watch many doors. No card and no user is in them.
#pragma once

#include <string>
#include <string_view>

#include "gateway/web/latest.h"

namespace web {

// OpenMetrics, for who asks for it, else the text format that was before it: they differ in the names of counters.
enum class MetricsForm { open_metrics, text };

// By a request's "Accept".
MetricsForm metrics_form(std::string_view accept);
std::string_view content_type(MetricsForm form);

std::string metrics_text(const Snapshot& snapshot, MetricsForm form);

}  // namespace web
