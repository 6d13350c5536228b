#include "tools/call/copy.h"

#include "tools/host/records.h"
#include "tools/host/status_names.h"
#include "tools/terminal/waiting.h"

#include <cstdlib>

namespace {
constexpr int32_t until_the_end = -1;
} // namespace

sts_next_operation_s** start_copy(const argument& which, const given_arguments& given,
                                  call_stage& stage) {
    const auto [from_lsu, from_image] = image_path(which.name, given.value_of(which));
    const auto [to_lsu, to_image] = image_path(which.name + ".to", given.field_of(which, "to"));
    const sts_lsu_ref_s lsu = stage.server().ref(from_lsu);
    const sts_image_def_s source = image_definition(from_image);
    const sts_copy_target_s target = copy_target(to_image, to_lsu);
    const sts_copy_params_s params =
        copy_params(0, given.number_field_of(which, "bytes_per_second"));
    sts_next_operation_s** holder = nullptr;
    const int status = stage.entries().async_copy_image(0, forwarded(&source), &lsu,
                                                        forwarded(&target), &holder, 0, params);
    if (status != STS_OK) {
        free(static_cast<void*>(holder));
        throw failed("starting a copy of", given.value_of(which), status);
    }
    stage.close_behind([&stage, holder](int) {
        stage.entries().async_cancel(&stage.session(), holder);
        (void)end_copy(stage, holder);
        return int{STS_OK};
    });
    return holder;
}

int end_copy(const call_stage& stage, sts_next_operation_s** holder) {
    const waiting notice("waiting for the end of the copy");
    sts_async_status_s ended = {};
    const int status = *holder != nullptr ? stage.entries().async_wait(&stage.session(), holder,
                                                                       until_the_end, &ended)
                                          : int{STS_OK};
    free(static_cast<void*>(holder));
    return status != STS_OK ? status : ended.result;
}
