// Archives as somebody may have made them.
#pragma once

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

/// An archive in memory, of any entries.
class forged_archive {
  public:
    forged_archive()
        : bytes_(1024 * 1024, '\0'), archive_(archive_write_new(), archive_write_free) {
        archive_write_set_format_pax(archive_.get());
        archive_write_set_bytes_in_last_block(archive_.get(), 1);
        archive_write_open_memory(archive_.get(), bytes_.data(), bytes_.size(), &used_);
    }

    void add_file(const std::string& name, const std::string& content, unsigned mode = 0755) {
        archive_entry* const entry = new_entry(name, AE_IFREG);
        archive_entry_set_perm(entry, mode);
        archive_entry_set_size(entry, static_cast<int64_t>(content.size()));
        write(entry, content);
    }
    void add_directory(const std::string& name) { write(new_entry(name, AE_IFDIR), ""); }
    void add_symlink(const std::string& name, const std::string& target) {
        archive_entry* const entry = new_entry(name, AE_IFLNK);
        archive_entry_set_symlink(entry, target.c_str());
        write(entry, "");
    }
    void add_hardlink(const std::string& name, const std::string& target) {
        archive_entry* const entry = new_entry(name, AE_IFREG);
        archive_entry_set_hardlink(entry, target.c_str());
        write(entry, "");
    }

    /// The archive; nothing more can be added.
    std::string finish() {
        archive_write_close(archive_.get());
        return bytes_.substr(0, used_);
    }

  private:
    static archive_entry* new_entry(const std::string& name, unsigned type) {
        archive_entry* const entry = archive_entry_new();
        archive_entry_set_pathname(entry, name.c_str());
        archive_entry_set_filetype(entry, type);
        archive_entry_set_perm(entry, 0755);
        return entry;
    }
    void write(archive_entry* entry, const std::string& content) {
        EXPECT_EQ(archive_write_header(archive_.get(), entry), ARCHIVE_OK);
        archive_write_data(archive_.get(), content.data(), content.size());
        archive_entry_free(entry);
    }

    std::string bytes_;
    size_t used_ = 0;
    std::unique_ptr<archive, decltype(&archive_write_free)> archive_;
};
