// The built plugin as a host has it, from dlopen to dlclose.
#pragma once

#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>

class loaded_plugin {
  public:
    /// Loads and starts it. Its program is its next layer.
    explicit loaded_plugin(const std::string& file)
        : library_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(library_, nullptr) << dlerror();
        using init_t = int(uint64_t, const char*, stspi_api_rec_t*);
        const auto init = reinterpret_cast<init_t*>(dlsym(library_, "stspi_init"));
        EXPECT_EQ(init(12, "/plugins", &record_), STS_OK);
    }
    ~loaded_plugin() {
        EXPECT_EQ(record_.ep->terminate_v7(), STS_OK);
        EXPECT_EQ(dlclose(library_), 0);
    }
    loaded_plugin(const loaded_plugin&) = delete;
    loaded_plugin& operator=(const loaded_plugin&) = delete;

    const stspi_ep_t& entries() const { return *record_.ep; }

  private:
    void* library_;
    stspi_api_rec_t record_ = {};
};
