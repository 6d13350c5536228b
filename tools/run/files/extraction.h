// Makes what archive entries describe, below one directory and nowhere else, whatever they say.
//
// Every path is resolved below the target's descriptor, which is opened once (beneath.h). A name is
// made by the first entry that has it (claimed_names.h); a later one is refused, except that a
// directory may be named again. What is in the place of a claimed name is taken away, never written
// to: a file is always a new one, its owner's alone until its content is there and its attributes
// are set through its descriptor. A hard link is only made to a name that this restore has claimed.
//
// A directory is only made when its entry comes; its mode, owner and times are set when all streams
// are done, so that no stream's file changes them or stands before a closed door.
#pragma once

#include "tools/run/files/attributes.h"
#include "tools/run/files/beneath.h"
#include "tools/run/files/claimed_names.h"
#include "tools/run/files/made_directories.h"
#include "tools/run/files/problems.h"

#include <cstdint>
#include <optional>
#include <string>

/// The target of a restore, which its streams share.
struct extraction_target {
    explicit extraction_target(descriptor directory) : below(std::move(directory)) {}

    const beneath below;
    claimed_names names;
    made_directories directories; ///< to be finished when the streams are done
};

/// Makes entries, one after the other. Made before threads run: it reads the process's file mode
/// mask, which it must change for that.
class extractor {
  public:
    extractor(extraction_target& target, file_problems& problems)
        : target_(target), problems_(problems) {}

    /// Makes what the entry describes. True when its content is wanted: `write` it, then `finish`.
    /// What can't or mustn't be made is said.
    bool make(archive_entry* entry);
    /// A piece of the content; what isn't written is zeros. Fails when the disk takes no more.
    void write(const void* bytes, size_t length, int64_t offset);
    void finish();

  private:
    struct open_file {
        descriptor file;
        std::string name; ///< as the entry has it
        uint64_t size;
        uint64_t end; ///< behind the last byte written
        attributes wanted;
        bool is_refused;
    };

    void make_directory(archive_entry* entry, const std::string& path);
    void make_file(archive_entry* entry, const std::string& path);
    void make_link(const std::string& path, const std::string& linked_name);
    void make_symlink(archive_entry* entry, const std::string& path);
    void make_special(archive_entry* entry, const std::string& path);

    int place_for(const std::string& path);
    template <typename Make>
    void make_claimed(const std::string& path, Make make);
    void note(const std::string& name, const std::string& trouble);

    extraction_target& target_;
    file_problems& problems_;
    const owner_lookup owners_;
    std::optional<open_file> current_;
    std::string place_path_; ///< the directory that the last one was made in, kept open
    descriptor place_;
};
