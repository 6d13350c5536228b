// The built plugin as a host has it, from dlopen to dlclose.
#pragma once

#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>

class loaded_plugin {
  public:
    /// Loads and starts it. The next layer is the program's own, where it has one, else a libsts
    /// that finds its plugins at `path`.
    explicit loaded_plugin(const std::string& file, const char* path = "/plugins")
        : library_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(library_, nullptr) << dlerror();
        using init_t = int(uint64_t, const char*, stspi_api_rec_t*);
        EXPECT_EQ(find<init_t>("stspi_init")(12, path, &record_), STS_OK);
    }
    ~loaded_plugin() {
        EXPECT_EQ(record_.ep->terminate_v7(), STS_OK);
        EXPECT_EQ(dlclose(library_), 0);
    }
    loaded_plugin(const loaded_plugin&) = delete;
    loaded_plugin& operator=(const loaded_plugin&) = delete;

    const stspi_ep_t& entries() const { return *record_.ep; }

    /// A function that it exports.
    template <typename Function>
    Function* find(const char* name) const {
        void* const found = dlsym(library_, name);
        EXPECT_NE(found, nullptr) << name;
        return reinterpret_cast<Function*>(found);
    }

  private:
    void* library_;
    stspi_api_rec_t record_ = {};
};
