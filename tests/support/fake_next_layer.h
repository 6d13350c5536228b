// A next layer that keeps every call and answers as the test says. Linking it in gives the program
// stsm_init and stsm_terminate of its own; a plugin that the program loads binds to them too.
//
// A call can be looked at argument by argument, or as one line of text:
//
//   open_server(#1, "disk:s3", null, 7, out)     #1 is the first handle that was handed out
//
// Every slot of sts_api_t that has a name is recorded by the same template: what a type of argument
// looks like, and what is stored behind it, is told once in fake_next_layer.cpp.
#pragma once

#include "plugin/stsapi.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// One argument as it was at the time of the call.
struct next_argument {
    uint64_t value = 0;  ///< the number or the pointer
    std::string content; ///< the bytes of a text or of a record whose size is known, else empty
    std::string text;    ///< as the line shows it
};

/// One call of the next layer.
struct next_call {
    std::string operation; ///< the slot's name, "stsm_init" or "stsm_terminate"
    std::vector<next_argument> arguments;

    /// Argument `index` as a pointer.
    template <typename Record>
    Record* pointer(size_t index) const {
        return reinterpret_cast<Record*>(arguments.at(index).value);
    }
    std::string line() const;
};

class fake_next_layer {
  public:
    /// What arrived, in order.
    std::vector<next_call> calls;
    /// Status of each operation by its name; 0 where there is none.
    std::map<std::string, int> answers;
    /// What an operation does beside answering, by its name, whatever its status. At the start
    /// reads and writes store their whole length as the bytes moved.
    std::map<std::string, std::function<void(const next_call&)>> effects;
    /// Sees every call before its effect.
    std::function<void(const next_call&)> observer;
    /// A failing open stores a handle all the same.
    bool hands_out_when_failing = false;

    fake_next_layer();

    /// The table, as stsm_init hands it out.
    static const sts_api_t* table();

    /// Gives a pointer of the test's own a name for the lines.
    void name(const void* pointer, const std::string& text) { names_[pointer] = text; }

    /// The calls since the last time, a line each.
    std::vector<std::string> take();
    /// The last call of an operation, which must have been made.
    const next_call& last(std::string_view operation) const;
    /// Handles that went out and were not closed, as the lines show them.
    std::vector<std::string> open_handles() const;

    // For the recording slots.
    int answer(next_call call, const std::vector<void**>& handles_out);
    /// As the lines show a pointer: its name, "#n" for a handle, "null" or "pointer".
    std::string text_of(const void* pointer) const;

  private:
    void* hand_out();

    std::map<const void*, std::string> names_;
    std::map<const void*, bool> handles_; ///< all that went out; true while open
};

/// The one next layer; a test starts with `next_layer() = {}`.
fake_next_layer& next_layer();
