// The fixed tables as one unit has them; five units are built of one source.
#pragma once

#include <array>
#include <string>
#include <tuple>
#include <vector>

struct unit_tables {
    const void* catalogue; ///< where the unit keeps it
    std::vector<std::tuple<int, std::string, std::string>> rows;
    const char* const* hints;
    size_t hint_count; ///< with the null at the end
};

unit_tables tables_1();
unit_tables tables_2();
unit_tables tables_3();
unit_tables tables_4();
unit_tables tables_5();

inline std::array<unit_tables, 5> all_units() {
    return {tables_1(), tables_2(), tables_3(), tables_4(), tables_5()};
}
