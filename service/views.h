// The book as others read it: JSON for programs and the page, and the text form that Prometheus
// collects. Both are UTF-8; the book's names are ISO 8859-1.
//
// With many storages these are megabytes: they are made piece by piece, each from what the book
// holds by then.
#pragma once

#include "service/ledger.h"
#include "service/text_source.h"

/// One object; times are seconds since the epoch or seconds, rates bytes per second. With the
/// history behind `since`, seconds since the epoch. `book` is borrowed.
text_source status_json(ledger& book, moment now, time_t since);

/// Text exposition format, version 0.0.4. `book` is borrowed.
text_source metrics_text(ledger& book, moment now);
