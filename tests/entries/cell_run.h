// Runs a cell of the matrix and holds it by its status, the lines, calls and exchanges in their
// order, what the host is left with, the server's count, the settings' file and the memory.
#pragma once

#include "tests/entries/cells.h"
#include "tests/entries/row_world.h"

class cell_run {
  public:
    explicit cell_run(const cell& it) : it_(it), of_(*it.of), in_(*it.of) {}

    void run();

    /// The call where allocation `number` fails, from 1. False: it makes fewer.
    bool call_without(int number);

    /// What can be told of a call before anything is expected of it.
    bool was(const outcome& expected) const;

    void expect(const outcome& expected);

  private:
    void call_with(memory_meter::refused refused);
    void prepare();
    void* handle_of(int kind) const;
    void put_server(void* server);
    lines story_of(const outcome& expected) const;
    void expect_sessions();
    void expect_outs();
    void expect_samples();
    void expect_file();
    void expect_texts();
    uint32_t fill(char* text, int status, uint32_t count);

    const cell& it_;
    const row& of_;
    row_world in_;
    const sts_api_t* const layer_ = sts_api;
    std::vector<uint64_t> arguments_;
    std::array<char, 16384> record_before_;
    std::string file_before_;
    std::string text_given_;
    const sts_api_t* bound_before_ = nullptr;
    const sts_api_t* bound_after_ = nullptr;
    outcome expected_;
};
