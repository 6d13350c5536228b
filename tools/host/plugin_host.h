// The plugin as its host sees it: loaded by name, checked, and called through its entry table.
// Every call that fails is thrown as a failure that names the operation, the object and the status.
//
// Images and lists of one server are opened and closed one at a time; reads and writes of different
// images may come on any number of threads.
#pragma once

#include "platform/sts/sts_records.h"
#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"

#include <cstdint>
#include <string>
#include <vector>

/// What the names of its servers begin with.
constexpr const char* plugin_prefix = "CS_throttle:";

/// A loaded and started plugin. Stops it at the end; whatever was opened through it is closed by
/// then. The library stays loaded: what it has left with the process, such as handlers for its end,
/// does.
class plugin_host {
  public:
    /// `path` empty: libstspithrottling.so of ../lib beside the program, else as the loader finds
    /// it. Fails unless the record is that of the throttling plugin.
    explicit plugin_host(const std::string& path);
    ~plugin_host();
    plugin_host(const plugin_host&) = delete;
    plugin_host& operator=(const plugin_host&) = delete;

    const stspi_ep_t& entries() const { return *entries_; }
    /// Makes and deletes an LSU: STS_ERR_NOT_SUPPORTED when the second table has no such entry.
    int create_lsu(throttling_server_s* server, const sts_lsu_def_s& definition) const;
    int delete_lsu(const sts_lsu_ref_s& lsu) const;
    const std::string& version() const { return version_; }
    /// Never stops it: for when somebody else has.
    void let_go() { entries_ = nullptr; }

    /// The entries of the second table, by the slots that they have there; null where it has none.
    using create_lsu_t = int (*)(throttling_server_s*, const sts_lsu_def_s*, void***);
    using delete_lsu_t = int (*)(sts_lsu_ref_s*);
    create_lsu_t create_lsu_entry() const;
    delete_lsu_t delete_lsu_entry() const;

  private:
    const stspi_ep_t* entries_ = nullptr;
    void* const* second_entries_ = nullptr;
    std::string version_;
};

/// What a list of images says of one.
struct listed_image {
    std::string name;
    std::string group;
    uint64_t size = 0; ///< bytes
};

class host_server;

/// An open image. One that isn't closed is abandoned.
class host_image {
  public:
    host_image(const host_server& server, throttling_image_s* handle, std::string name);
    ~host_image();
    host_image(host_image&& other) noexcept;
    host_image& operator=(host_image&&) = delete;
    host_image(const host_image&) = delete;
    host_image& operator=(const host_image&) = delete;

    const std::string& name() const { return name_; }
    throttling_image_s* handle() const { return handle_; }
    /// Both return the status and leave the count in `moved`. They wait where the plugin paces.
    int read(void* buffer, uint64_t length, uint64_t position, uint64_t& moved);
    int write(const void* buffer, uint64_t length, uint64_t position, uint64_t& moved);
    /// The same for the image's metadata: STS_ERR_NOT_SUPPORTED where there is none. They don't
    /// wait.
    int read_meta(void* buffer, uint64_t length, uint64_t position, uint64_t& moved);
    int write_meta(const void* buffer, uint64_t length, uint64_t position, uint64_t& moved);
    void close(sts_close_mode_t mode);
    /// The same, with the status as its answer.
    int end(sts_close_mode_t mode);
    /// Never closes it: for when a close would end the process.
    void let_go() { handle_ = nullptr; }

  private:
    const stspi_ep_t& entries_;
    throttling_image_s* handle_;
    std::string name_;
};

/// An open server.
class host_server {
  public:
    /// `session` as for the plugin; it is copied, its identifier isn't.
    host_server(const plugin_host& host, const sts_session_def_v7_t& session, std::string name);
    /// Closes it; what that answers is lost.
    ~host_server();
    host_server(const host_server&) = delete;
    host_server& operator=(const host_server&) = delete;

    const std::string& name() const { return name_; }
    throttling_server_s* handle() const { return handle_; }
    const sts_session_def_v7_t& session() const { return session_; }
    /// The record that names an LSU of it.
    sts_lsu_ref_s ref(const std::string& lsu) const;
    std::vector<std::string> lsus();
    /// Fails, with the names that are there, unless the LSU is.
    void require_lsu(const std::string& lsu);
    void create_lsu(const std::string& lsu) const;
    std::vector<listed_image> images(const std::string& lsu);
    /// Entries of lists so far that the server couldn't give; each was named.
    size_t passed_over() const { return passed_over_; }
    /// Names and counts one that was listed and can't be told more of, as it may be gone by now.
    void pass_over(const std::string& reason);
    sts_image_info_s image_info(const std::string& lsu, const std::string& image) const;
    host_image create_image(const std::string& lsu, const std::string& image,
                            const std::string& group) const;
    /// `flags` of sts_image_flag_t.
    host_image open_image(const std::string& lsu, const std::string& image,
                          uint32_t flags = STS_IMAGE_READ) const;
    void delete_image(const std::string& lsu, const std::string& image) const;
    /// The same without a word of what came of it: for what is left of a failure.
    void discard_image(const std::string& lsu, const std::string& image) const;
    void close();
    /// The same, with the status as its answer.
    int end();
    /// Never closes it: for when somebody else has.
    void let_go() { handle_ = nullptr; }

    const stspi_ep_t& entries() const { return host_.entries(); }

  private:
    int delete_by_name(const std::string& lsu, const std::string& image) const;

    const plugin_host& host_;
    const sts_session_def_v7_t session_;
    std::string name_;
    throttling_server_s* handle_ = nullptr;
    size_t passed_over_ = 0;
};
