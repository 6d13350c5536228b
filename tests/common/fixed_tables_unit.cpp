#include "tests/common/fixed_tables_unit.h"

#include "common/cloud_error_catalogue.h"
#include "common/onet_proxy_hint.h"

/// UNIT_TABLES is the unit's own name of it.
unit_tables UNIT_TABLES() {
    unit_tables tables = {critical_err_to_msg,
                          {},
                          onet_proxy_hint_str,
                          sizeof onet_proxy_hint_str / sizeof *onet_proxy_hint_str};
    for (const critical_err_row& row : critical_err_to_msg) {
        tables.rows.emplace_back(row.code, row.id, row.message);
    }
    return tables;
}
