#include "tests/entries/row_groups.h"

#include <algorithm>

const std::vector<row>& rows() {
    static const std::vector<row> all = [] {
        std::vector<row> joined;
        for (const auto& group :
             {layer_rows(), server_rows(), image_rows(), throttled_image_rows(), forwarded_rows(),
              list_rows(), lsu_and_async_rows(), config_rows(), channel_rows()}) {
            joined.insert(joined.end(), group.begin(), group.end());
        }
        return joined;
    }();
    return all;
}

bool has_parameter(const row& of, parameter_t parameter) {
    const auto& all = operation_named(of.operation).parameters;
    return std::find(all.begin(), all.end(), parameter) != all.end();
}
