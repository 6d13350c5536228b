// Prints what hosts in some mixes use of a storage, as a table for docs/benchmarks.md: with an even
// part for each of them, and with its fair share. Virtual time, so the figures are always the same.

#include "tests/service/share_simulation.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr double all = as_much_as_it_may;

struct row {
    const char* name;
    simulated_mix mix;
};

simulated_mix mix_of(const std::vector<double>& speeds) {
    simulated_mix mix;
    mix.lasts = 60;
    for (const double speed : speeds) {
        simulated_host host;
        host.demands = {{0, speed}};
        mix.hosts.push_back(host);
    }
    return mix;
}

/// One alone for 20 intervals, and then so many more at once.
simulated_mix joined_by(size_t more) {
    simulated_mix mix = mix_of(std::vector<double>(1 + more, all));
    for (size_t each = 1; each <= more; ++each) {
        mix.hosts[each].demands = {{20.05 * mix.interval, all}};
    }
    return mix;
}

void print_course(const char* name, const simulated_mix& mix) {
    const simulated_course course = simulate(mix);
    printf("| %s | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f |", name, course.use(10, mix.lasts),
           course.use_of(0, 10, mix.lasts), course.use(0, 1), course.use(0, 2),
           course.most(5, 10, mix.lasts), course.most(10, 0, mix.lasts));
    printf("\n");
}

} // namespace

int main() {
    setenv("TZ", "UTC", 1);
    const row rows[] = {
        {"1 host that wants all", mix_of({all})},
        {"2 that want all", mix_of({all, all})},
        {"4 that want all", mix_of({all, all, all, all})},
        {"16 that want all", mix_of(std::vector<double>(16, all))},
        {"64 that want all", mix_of(std::vector<double>(64, all))},
        {"1 beside one of 0.1", mix_of({all, 0.1})},
        {"1 beside seven of 0.05", mix_of({all, .05, .05, .05, .05, .05, .05, .05})},
        {"hosts of 1, 0.4 and 0.15", mix_of({1, 0.4, 0.15})},
        {"2 beside one of 0.1", mix_of({all, all, 0.1})},
        {"5 beside one of 0.1", mix_of({all, all, all, all, all, 0.1})},
        {"1, and 1 more after 20", joined_by(1)},
        {"1, and 4 more after 20", joined_by(4)},
        {"1, and 63 more after 20", joined_by(63)},
    };
    for (const bool evenly : {true, false}) {
        printf("%s\n\n", evenly ? "An even part for each:" : "Its fair share for each:");
        printf("| Hosts | Use | Of it the first | In interval 1 | In 1 and 2 | Most in five | Most "
               "in ten |\n| --- | ---: | ---: | ---: | ---: | ---: | ---: |\n");
        for (row each : rows) {
            each.mix.evenly = evenly;
            print_course(each.name, each.mix);
        }
        printf("\n");
    }
    return 0;
}
