// Where the secret of object keys is kept, and what isn't taken for it.

#include "service/key_secret.h"

#include "tests/support/conf_dir.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using testing::AllOf;
using testing::HasSubstr;

namespace {

mode_t mode_of(const std::string& path) {
    struct stat found = {};
    EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
    return found.st_mode & 07777U;
}

bool write_to(int descriptor, const key_secret& secret) {
    return write(descriptor, secret.data(), secret.size()) == static_cast<ssize_t>(secret.size());
}

class KeySecret : public testing::Test {
  protected:
    ~KeySecret() override { std::filesystem::remove_all(scratch); }

    void write(const std::string& text, mode_t mode = 0600) {
        std::ofstream(file) << text;
        chmod(file.c_str(), mode);
    }
    /// What is said where it is refused, which leaves what is there as it is.
    std::string refusal() {
        try {
            kept_secret(state_directory(directory));
        } catch (const state_error& error) {
            return error.what();
        }
        return "";
    }
    size_t files() {
        const std::filesystem::directory_iterator entries(directory);
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }

    static std::string make_scratch() {
        std::string path = (std::filesystem::temp_directory_path() / "secret-XXXXXX").string();
        EXPECT_NE(mkdtemp(path.data()), nullptr);
        return path;
    }

    const std::string scratch = make_scratch();
    const std::string directory = scratch + "/a/state";
    const std::string file = directory + "/secret";
};

TEST_F(KeySecret, IsMadeOnceAndKept) {
    const key_secret first = kept_secret(state_directory(directory));
    EXPECT_EQ(kept_secret(state_directory(directory)), first);
    EXPECT_NE(kept_secret(state_directory(scratch + "/other")), first);
    EXPECT_NE(first, key_secret());
    EXPECT_EQ(files(), 1U);
}

TEST_F(KeySecret, IsReadableForItsOwnerAlone) {
    const mode_t before = umask(0);
    kept_secret(state_directory(directory));
    umask(before);
    EXPECT_EQ(mode_of(scratch + "/a"), 0700U);
    EXPECT_EQ(mode_of(directory), 0700U);
    EXPECT_EQ(mode_of(file), 0600U);
}

TEST_F(KeySecret, ThatOthersMayHaveReadIsRefused) {
    kept_secret(state_directory(directory));
    for (const mode_t mode : {0640U, 0604U, 0660U, 0610U, 0601U, 0644U}) {
        chmod(file.c_str(), mode);
        EXPECT_THAT(refusal(), AllOf(HasSubstr(file + ": others may have read it (owner "),
                                     HasSubstr("remove it, and a new one is made")));
        EXPECT_EQ(mode_of(file), mode);
    }
}

TEST_F(KeySecret, OfAnotherOwnerIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    kept_secret(state_directory(directory));
    ASSERT_EQ(chown(file.c_str(), 65534, 65534), 0);
    EXPECT_THAT(refusal(), HasSubstr(file + ": others may have read it (owner 65534, mode 0600)"));
}

TEST_F(KeySecret, DirectoryThatOthersMayWriteToIsRefused) {
    kept_secret(state_directory(directory));
    for (const mode_t mode : {0770U, 0707U, 01777U}) {
        chmod(directory.c_str(), mode);
        EXPECT_THAT(refusal(), HasSubstr(directory + ": others may write there (owner "));
    }
    chmod(directory.c_str(), 0755); // as a service manager makes it
    EXPECT_EQ(refusal(), "");
}

TEST_F(KeySecret, ThatIsDamagedIsRefusedAndNotReplaced) {
    const std::string digits(64, 'a');
    std::filesystem::create_directories(directory);
    chmod(directory.c_str(), 0700);
    for (const std::string& text :
         {std::string(), std::string("\n"), digits, digits.substr(1) + "\n", digits + "\n\n",
          digits.substr(1) + "g\n", digits + " ", std::string(65, '\0'),
          std::string(1 << 20, 'a')}) {
        write(text);
        EXPECT_THAT(refusal(), HasSubstr(file + ": is damaged: ")) << text.substr(0, 80);
        EXPECT_EQ(conf_dir::read(file), text);
    }
    write(digits + "\n");
    EXPECT_EQ(refusal(), "");
}

TEST_F(KeySecret, ThatIsNoFileIsRefusedAtOnce) {
    std::filesystem::create_directories(directory);
    chmod(directory.c_str(), 0700);
    std::filesystem::create_symlink("/dev/zero", file);
    EXPECT_THAT(refusal(), HasSubstr(file + ": is no file"));
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_THAT(refusal(), HasSubstr(file + ": is no file"));
    std::filesystem::remove(file);
    ASSERT_EQ(mkdir(file.c_str(), 0700), 0);
    EXPECT_THAT(refusal(), HasSubstr(file + ": is no file"));
}

TEST_F(KeySecret, WhereNothingCanBeKeptSaysWhichDirectory) {
    std::ofstream(scratch + "/a") << "in the way";
    EXPECT_THAT(refusal(), AllOf(HasSubstr(scratch + "/a"), HasSubstr("Not a directory")));
}

TEST_F(KeySecret, OfProcessesThatStartAtOnceIsOne) {
    for (int round = 0; round < 20; ++round) {
        const std::string where = scratch + "/" + std::to_string(round);
        int from[2];
        ASSERT_EQ(pipe(from), 0);
        std::vector<pid_t> children;
        for (int each = 0; each < 8; ++each) {
            const pid_t child = fork();
            if (child == 0) {
                key_secret secret = {};
                try {
                    secret = kept_secret(state_directory(where));
                } catch (const state_error& error) {
                    fprintf(stderr, "%s\n", error.what());
                }
                _exit(write_to(from[1], secret) ? 0 : 1);
            }
            children.push_back(child);
        }
        close(from[1]);
        const key_secret kept = kept_secret(state_directory(where));
        for (const pid_t child : children) {
            key_secret theirs;
            ASSERT_EQ(read(from[0], theirs.data(), theirs.size()),
                      static_cast<ssize_t>(theirs.size()));
            EXPECT_EQ(theirs, kept);
            waitpid(child, nullptr, 0);
        }
        close(from[0]);
    }
}

// --- where it is by default ---

class DefaultState : public testing::Test {
  protected:
    DefaultState() {
        for (const char* name : names) {
            const char* const value = getenv(name);
            before[name] = value != nullptr ? std::optional<std::string>(value) : std::nullopt;
            unsetenv(name);
        }
    }
    ~DefaultState() override {
        for (const auto& [name, value] : before) {
            value ? setenv(name, value->c_str(), 1) : unsetenv(name);
        }
    }

    static constexpr const char* names[] = {"STATE_DIRECTORY", "XDG_STATE_HOME", "HOME"};
    std::map<const char*, std::optional<std::string>> before;
};

TEST_F(DefaultState, IsTheServiceManagersFirst) {
    setenv("STATE_DIRECTORY", "/var/lib/one:/var/lib/two", 1);
    setenv("XDG_STATE_HOME", "/home/u/state", 1);
    EXPECT_EQ(default_state_directory(), "/var/lib/one");
    setenv("STATE_DIRECTORY", "/var/lib/one", 1);
    EXPECT_EQ(default_state_directory(), "/var/lib/one");
}

TEST_F(DefaultState, IsRootsOrTheUsers) {
    setenv("XDG_STATE_HOME", "/home/u/state", 1);
    setenv("HOME", "/home/u", 1);
    if (geteuid() == 0) {
        EXPECT_EQ(default_state_directory(), "/var/lib/vlsld");
        ASSERT_EQ(seteuid(65534), 0);
    }
    EXPECT_EQ(default_state_directory(), "/home/u/state/vlsld");
    unsetenv("XDG_STATE_HOME");
    EXPECT_EQ(default_state_directory(), "/home/u/.local/state/vlsld");
    setenv("XDG_STATE_HOME", "relative", 1); // which is to be passed over
    EXPECT_EQ(default_state_directory(), "/home/u/.local/state/vlsld");
    unsetenv("HOME");
    EXPECT_EQ(default_state_directory(), "");
    if (getuid() == 0) {
        ASSERT_EQ(seteuid(0), 0);
    }
}

} // namespace
