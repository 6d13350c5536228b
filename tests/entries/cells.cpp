#include "tests/entries/cells.h"

#include <algorithm>

namespace {

// --- which there are ---------------------------------------------------------------------------

bool has(const std::vector<size_t>& places, size_t place) {
    return std::find(places.begin(), places.end(), place) != places.end();
}

bool is_pointer(parameter_t parameter) {
    return parameter != parameter_t::number && parameter != parameter_t::copy_params;
}

class cell_maker {
  public:
    explicit cell_maker(const row& of) : of_(of) {}

    std::vector<cell> make() {
        for (const int status : {0, 2060013, 2060043, 2060020, 4711}) {
            add(condition::answered, 0, status,
                status != STS_OK && of_.call.empty() ? calls_nothing : nullptr);
        }
        const char* const other_row = of_.repeats ? held_by_first : nullptr;
        add(condition::unbound, 0, 0, other_row);
        add(condition::cut_off, 0, 0, other_row);
        add(condition::without_any, 0, 0, other_row);
        add(condition::without_one, 0, 0, other_row);
        const auto& parameters = operation_named(of_.operation).parameters;
        for (size_t i = 0; i < parameters.size(); ++i) {
            make_for(parameters[i], i + 1);
        }
        if (of_.repeats) {
            for (cell& each : cells_) {
                each.left_out = each.what == condition::answered ? nullptr : held_by_first;
            }
        }
        return cells_;
    }

  private:
    void make_for(parameter_t parameter, size_t place) {
        if (is_pointer(parameter)) {
            const bool held = has(of_.checked, place) || has(of_.passed, place) ||
                              of_.refused_nulls.count(place) != 0;
            add(condition::null, place, 0, held ? nullptr : unchecked);
        }
        switch (parameter) {
        case parameter_t::lsu:
            make_null_server(place);
            make_server(place);
            break;
        case parameter_t::server:
            make_server(place);
            break;
        case parameter_t::image:
            make_handle(place, image_kind);
            if (of_.server == magic_t::checked) {
                make_null_server(place);
                make_server(place);
            }
            break;
        case parameter_t::lsu_list:
            make_handle(place, lsu_list_kind);
            break;
        case parameter_t::image_list:
            make_handle(place, image_list_kind);
            break;
        case parameter_t::channel:
            add(condition::stale_handle, place, 0, no_magic);
            add(condition::other_handle, place, server_kind, no_magic);
            break;
        default:
            break;
        }
    }

    void make_null_server(size_t place) {
        add(condition::null_server, place, 0, of_.server == magic_t::checked ? nullptr : unchecked);
    }

    void make_server(size_t place) {
        add(condition::stale_server, place, 0);
        make_other(condition::other_server, place, server_kind, of_.server);
    }

    void make_handle(size_t place, kind_t kind) {
        add(condition::stale_handle, place, 0);
        make_other(condition::other_handle, place, kind, of_.handle);
    }

    void make_other(condition what, size_t place, kind_t right_one, magic_t magic) {
        for (int kind = 0; kind < kinds; ++kind) {
            if (kind != right_one) {
                add(what, place, kind, magic == magic_t::checked ? nullptr : unread_magic);
            }
        }
    }

    void add(condition what, size_t place, int value, const char* left_out = nullptr) {
        cells_.push_back({&of_, what, place, value, left_out});
    }

    const row& of_;
    std::vector<cell> cells_;
};

// --- what a cell is to bring about -------------------------------------------------------------

bool happens(when it, bool success) {
    return it == when::always || (it == when::on_success && success);
}

lines joined(lines first, const lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

lines without_calls(lines story) {
    story.erase(std::remove_if(story.begin(), story.end(),
                               [](const std::string& line) { return line[0] == '-'; }),
                story.end());
    return story;
}

/// The call is made and answers `status`.
outcome answered(const row& of, int status) {
    const bool success = status == STS_OK;
    outcome result;
    result.status = of.hides_failure ? STS_OK : status;
    result.story = of.before;
    if (!of.call.empty()) {
        result.story.push_back("-> " + of.call);
    }
    if (!success) {
        const auto special = of.failures.find(status);
        const std::string& line = special != of.failures.end() ? special->second : of.failure;
        if (!line.empty()) {
            result.story.push_back(line);
        }
    }
    result.story = joined(result.story, success ? of.after : of.after_failure);
    for (std::string& each : result.story) {
        each = replaced(each, "%d", std::to_string(status));
    }
    result.out = happens(of.out, success);
    result.named = of.name_at && (success || of.name_after_failure);
    result.status_stored = of.status_at ? status : 0;
    result.counts = success ? of.counts : of.counts_after_failure;
    result.unbinds = success && of.unbinds;
    result.kept = success ? of.kept : of.kept_after_failure;
    return result;
}

outcome with_no_layer_bound(const row& of) {
    if (of.needs_no_layer) {
        return answered(of, STS_OK);
    }
    outcome result = answered(of, STS_ERR_NOT_INIT);
    result.story = of.unbound.value_or(without_calls(result.story));
    if (of.unbound) { // every call of the operation fails, not this one alone
        result.status = STS_ERR_NOT_INIT;
    }
    return result;
}

outcome without_next_layer(const row& of) {
    outcome result = answered(of, STS_OK);
    switch (of.cut_off) {
    case cut_off_t::no_matter:
        break;
    case cut_off_t::null_goes_down:
        for (std::string& each : result.story) {
            each = replaced(each, "server'", "null");
        }
        break;
    case cut_off_t::refused:
        return {};
    case cut_off_t::nothing_called:
        result.story = of.alone.value_or(without_calls(result.story));
        result.named = false;
        if (of.out_needs_next) {
            result.out = false;
            result.kept = 0;
        }
        break;
    }
    return result;
}

outcome without_any_memory(const row& of) {
    return of.shortages.empty() ? answered(of, STS_OK)
                                : expected_of(of, of.without_any.value_or(of.shortages.front()));
}

/// The pointer of `place` goes down as null.
outcome with_null_passed(const row& of, size_t place) {
    const auto& parameters = operation_named(of.operation).parameters;
    const auto records =
        std::count(parameters.begin(), parameters.begin() + static_cast<ptrdiff_t>(place),
                   parameter_t::record);
    outcome result = answered(of, STS_OK);
    for (std::string& each : result.story) {
        each = replaced(each, records == 1 ? ", record" : ", other_record", ", null");
    }
    return result;
}

const char* const condition_names[] = {"answered",     "no layer bound", "no next layer",
                                       "null",         "null server",    "stale server",
                                       "other server", "stale handle",   "other handle",
                                       "no memory",    "each allocation"};

} // namespace

std::vector<cell> all_cells() {
    std::vector<cell> all;
    for (const row& each : rows()) {
        const std::vector<cell> of_row = cell_maker(each).make();
        all.insert(all.end(), of_row.begin(), of_row.end());
    }
    return all;
}

outcome expected_of(const cell& it) {
    const row& of = *it.of;
    switch (it.what) {
    case condition::answered:
        return answered(of, it.value);
    case condition::unbound:
        return with_no_layer_bound(of);
    case condition::cut_off:
        return without_next_layer(of);
    case condition::without_any:
        return without_any_memory(of);
    case condition::null: {
        const auto refused = of.refused_nulls.find(it.place);
        if (refused != of.refused_nulls.end()) {
            return expected_of(of, refused->second);
        }
        return has(of.passed, it.place) ? with_null_passed(of, it.place) : outcome();
    }
    case condition::stale_server:
        return of.server == magic_t::checked ? outcome() : answered(of, STS_OK);
    case condition::stale_handle:
        return of.handle == magic_t::checked ? outcome() : answered(of, STS_OK);
    case condition::null_server:
    case condition::other_server:
    case condition::other_handle:
    case condition::without_one:
        break;
    }
    return {};
}

outcome expected_of(const row& of, const consequence& it) {
    outcome result = it.status == STS_OK ? answered(of, STS_OK) : outcome();
    result.status = it.status;
    result.story = it.story;
    result.kept = it.kept;
    return result;
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
    return text;
}

std::string title_of(const cell& it) {
    return it.of->operation + " at " + it.of->call + ": " +
           condition_names[static_cast<int>(it.what)] + ", argument " + std::to_string(it.place) +
           ", value " + std::to_string(it.value);
}
