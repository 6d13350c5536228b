// The memory of a run doesn't grow with what it knows of each file.

#include "tests/support/process_state.h"
#include "tests/tools/tool_fixture.h"

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr int folders = 160;
constexpr int files_a_folder = 100;
constexpr long most_growth = 2048; // KiB, where a list of the files would take over 5000

class ManyFiles : public ToolTest {
  protected:
    ManyFiles() {
        if (!has_memory_of_its_own) {
            return;
        }
        how.directory = root;
        fs::create_directory(path("few"));
        for (int folder = 0; folder < folders; ++folder) {
            const std::string in = path("many/folder" + std::to_string(folder));
            fs::create_directories(in);
            for (int file = 0; file < files_a_folder; ++file) {
                const std::string name =
                    in + "/a file whose name is long, and whose number is " + std::to_string(file);
                close(open(name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
            }
        }
    }

    long memory(const std::string& command, const std::vector<std::string>& arguments) const {
        const ended result = run(command, arguments);
        EXPECT_EQ(result.code, 0) << result.err;
        return result.most_memory;
    }
};

TEST_F(ManyFiles, TakeHardlyMoreMemoryThanFew) {
    if (!has_memory_of_its_own) {
        GTEST_SKIP() << "a sanitizer keeps what is freed";
    }
    const long before = memory("backup", {"few", "--name", "few", "--streams", "2"});
    EXPECT_LT(memory("backup", {"many", "--name", "many", "--streams", "2"}), before + most_growth);
    EXPECT_LT(memory("verify", {"many", "--name", "many"}),
              memory("verify", {"few", "--name", "few"}) + most_growth);
    EXPECT_LT(memory("restore", {"--name", "many", "--to", "r"}),
              memory("restore", {"--name", "few", "--to", "f"}) + most_growth);
}

} // namespace
