// How this library fails: inside it a failure is an exception that carries the status, and every
// slot of the table turns it into that status before the caller sees anything. The data path throws
// only when it has failed.
#pragma once

#include "platform/sts/sts_records.h"

#include <cerrno>
#include <new>
#include <system_error>
#include <type_traits>

namespace disk {

struct failure {
    int status;
};

[[noreturn]] inline void fail(int status) { throw failure{status}; }
[[noreturn]] inline void fail_errno(int error) { fail(sts_status_of_errno(error)); }

/// The result of a system call, which is -1 on failure with the reason in errno.
template <typename Result>
Result checked(Result result) {
    if (result == -1) {
        fail_errno(errno);
    }
    return result;
}

/// The result of `call`, a system call, checked; made again for as long as a signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return checked(result);
}

/// Fails with STS_ERR_INVALID unless the caller's arguments are good.
inline void require(bool good) {
    if (!good) {
        fail(STS_ERR_INVALID);
    }
}

/// The status of running `body`, whatever leaves it; 0 for a body that returns nothing.
template <typename Body>
int status_of(Body body) noexcept {
    try {
        if constexpr (std::is_void_v<decltype(body())>) {
            body();
            return STS_OK;
        } else {
            return body();
        }
    } catch (const failure& reason) {
        return reason.status;
    } catch (const std::bad_alloc&) {
        return STS_ERR_NOMEM;
    } catch (const std::system_error& reason) { // a thread or a lock that can't be had
        return sts_status_of_errno(reason.code().value());
    } catch (...) {
        return sts_status_of_errno(EIO); // nothing else is thrown, and nothing may leave
    }
}

/// Whether that is what one entry of a directory is passed over for where many are looked at.
constexpr bool is_gone_or_damaged(int status) {
    return status == sts_status_of_errno(ENOENT) || status == sts_status_of_errno(EBADMSG);
}

/// A slot that nothing is thrown out of: `guarded<function>::slot`.
template <auto function, typename Type = decltype(function)>
struct guarded;

template <auto function, typename... Arguments>
struct guarded<function, int (*)(Arguments...)> {
    static int slot(Arguments... arguments) {
        return status_of([&] { return function(arguments...); });
    }
};

} // namespace disk
