// The book as others read it: JSON for programs and the page, and the text form that Prometheus
// collects.
#pragma once

#include "service/ledger.h"

#include <string>

/// One object; times are seconds since the epoch or seconds, rates bytes per second. Names that
/// aren't UTF-8 have replacement characters.
std::string status_json(const ledger_view& seen, moment now);

/// Text exposition format, version 0.0.4.
std::string metrics_text(const ledger_view& seen);
