// A world for a row of the table.
#pragma once

#include "tests/entries/rows.h"

/// A world for one call of a row's operation. What the call handed out, or left to the host, is
/// released at the end.
class row_world : public world {
  public:
    explicit row_world(const row& of);
    ~row_world() override;

    /// The good arguments, from what the world holds now.
    std::vector<uint64_t> good_arguments();
    void call_with(const std::vector<uint64_t>& given, int answer = 0,
                   memory_meter::refused refused = {});
    void call() { call_with(good_arguments()); }

    /// The settings' file.
    std::string file() const { return conf_dir::read(files.plugin_file()); }

    const row& of;
    const operation& called;

  private:
    void throttle();
    void set_apart();
    void release_out();
    bool has_released() const;

    server_ptr home_; ///< of the images and lists, where `server` has none
};
