// What the tool refuses or can't do: the right message and exit code, and nothing half done.

#include "tests/tools/run/generated_tree.h"
#include "tests/tools/tool_fixture.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Refusal : public ToolTest {
  protected:
    Refusal() {
        fs::create_directory(path("tree"));
        write_text(path("tree/file"), "content");
        how.directory = root;
    }

    void expect_failure(const ended& result, const std::string& message) const {
        EXPECT_EQ(result.code, 1);
        EXPECT_THAT(result.err, HasSubstr("throttlectl: "));
        EXPECT_THAT(result.err, HasSubstr(message));
    }
};

// --- the plugin --------------------------------------------------------------------------------

TEST_F(Refusal, NoSuchPlugin) {
    expect_failure(run("list", {"--plugin", "/nowhere.so"}),
                   "the plugin can't be loaded: /nowhere.so");
}

TEST_F(Refusal, LibraryThatIsNoPlugin) {
    expect_failure(run("list", {"--plugin", NO_PLUGIN}), "is no plugin: it has no stspi_init");
}

struct other_record {
    const char* what;
    const char* message;
};

class OtherPlugin : public Refusal, public testing::WithParamInterface<other_record> {};

INSTANTIATE_TEST_SUITE_P(
    Records, OtherPlugin,
    testing::Values(other_record{"version", "its record has version 9, not 11"},
                    other_record{"table", "its record has no entry table"},
                    other_record{"prefix", "its prefix is \"CS_copies:\", not \"CS_throttle:\""},
                    other_record{"label", "its label is \"Copying Plugin\", not \"Throttling"},
                    other_record{"text", "its record has no version text"}),
    [](const auto& each) { return std::string(each.param.what); });

TEST_P(OtherPlugin, IsRefusedByItsRecord) {
    how.environment["OTHER_PLUGIN"] = GetParam().what;
    const ended list = run("list", {"--plugin", OTHER_PLUGIN});
    expect_failure(list, std::string("isn't the throttling plugin: ") + GetParam().message);
}

TEST_F(Refusal, PluginThatDoesNotStartTellsItsStatus) {
    how.environment["OTHER_PLUGIN"] = "start";
    expect_failure(run("list", {"--plugin", OTHER_PLUGIN}),
                   "starting the plugin \"" + std::string(OTHER_PLUGIN) +
                       "\" failed: STS_ERR_OPEN (2060018): the log file can't be opened");
}

TEST_F(Refusal, ImageRefusedByTheServiceTellsTheStatusAndTheImage) {
    how.environment["OTHER_PLUGIN"] = "refuse";
    expect_failure(run("backup", {"tree", "--name", "b", "--plugin", OTHER_PLUGIN}),
                   "creating the image \"b.lock\" failed: STS_ERR_MAX_CONNECTIONS (2060020): the "
                   "service refuses one more connection to this storage");
}

TEST_F(Refusal, ListThatNeverEndsIsGivenUp) {
    how.environment["OTHER_PLUGIN"] = "damaged";
    const ended list = run("list", {"--plugin", OTHER_PLUGIN});
    expect_failure(list, "listing the images of \"daily\" failed: status 2061074");
}

TEST_F(Refusal, LsuThatCanNotBeCreatedTellsTheStatus) {
    how.environment["OTHER_PLUGIN"] = "refuse";
    const ended backup = tool({"run", "backup", "tree", "--plugin", OTHER_PLUGIN, "--server", "s",
                               "--lsu", "other", "--name", "b"});
    expect_failure(backup, "creating the LSU \"other\" failed: STS_ERR_NOT_SUPPORTED (2060016)");
}

TEST_F(Refusal, ListedObjectThatIsGoneByThenIsNamedAndPassedOver) {
    how.environment["OTHER_PLUGIN"] = "vanishing";
    ended list = tool({"lsu", "list", "--json", "--plugin", OTHER_PLUGIN, "--server", "s"});
    EXPECT_EQ(list.code, 1);
    EXPECT_EQ(list.out, "[]\n");
    EXPECT_THAT(list.err, HasSubstr("passed over: reading the properties of the LSU \"daily\" of "
                                    "the server \"s\" failed: status 2061002"));
    list = tool({"run", "list", "--plugin", OTHER_PLUGIN, "--server", "s", "--lsu", "daily"});
    EXPECT_EQ(list.code, 1);
    EXPECT_THAT(list.err, HasSubstr("passed over: reading the properties of the image \"a\""));
    list = tool(
        {"image", "list", "--json", "--plugin", OTHER_PLUGIN, "--server", "s", "--lsu", "daily"});
    EXPECT_EQ(list.code, 1);
    EXPECT_EQ(list.out, "[]\n");
    EXPECT_THAT(list.err, HasSubstr("passed over: reading the properties of the image \"a\" of "
                                    "the server \"s\" failed: status 2061002"));
}

TEST_F(Refusal, EventsOfAServerThatCanNotBeClosedTellTheStatus) {
    how.environment["OTHER_PLUGIN"] = "unclosable";
    expect_failure(tool({"events", "--plugin", OTHER_PLUGIN, "--server", "s"}),
                   "closing the server \"s\" failed: STS_ERR_FILE (2060017)");
}

// --- servers, LSUs, backups --------------------------------------------------------------------

TEST_F(Refusal, ServerNameOfAnotherPlugin) {
    const ended list = tool({"run", "list", "--conf-dir", "conf", "--server", "CS_other:t:disk:x"});
    expect_failure(list, "claiming the server name \"CS_other:t:disk:x\" failed: "
                         "STS_ERR_NOT_CLAIMED (2060009)");
}

TEST_F(Refusal, ServerNameWithoutANextLayer) {
    const ended list = tool({"run", "list", "--conf-dir", "conf", "--server", "CS_throttle:t"});
    expect_failure(list, "opening the server \"CS_throttle:t\" failed: STS_ERR_INVALID (2060001)");
}

TEST_F(Refusal, StoreThatCanNotBeMadeTellsWhatTheSystemSays) {
    const ended list = tool({"run", "list", "--conf-dir", "conf", "--server",
                             "CS_throttle:t1:disk:" + path("no/such/place")});
    expect_failure(list, "failed: status 2061002: the storage says: No such file or directory");
}

TEST_F(Refusal, MissingLsuIsNamedWithThoseThatAreThere) {
    expect_failure(run("restore", {"--name", "b", "--to", "r"}),
                   "the server \"" + server() + "\" has no LSU \"daily\", and no other either");
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    const ended list =
        tool({"run", "list", "--conf-dir", "conf", "--server", server(), "--lsu", "weekly"});
    expect_failure(list, "has no LSU \"weekly\"; it has daily");
}

TEST_F(Refusal, UnknownBackupIsNamedWithThoseThatAreThere) {
    ASSERT_EQ(run("backup", {"tree", "--name", "monday"}).code, 0);
    ASSERT_EQ(run("backup", {"tree", "--name", "tuesday", "--streams", "2"}).code, 0);
    expect_failure(run("restore", {"--name", "friday", "--to", "r"}),
                   "there is no backup \"friday\" in the LSU \"daily\"; it has monday, tuesday");
    EXPECT_FALSE(fs::exists(path("r")));
    expect_failure(run("verify", {"--name", "friday", "tree"}), "there is no backup \"friday\"");
}

TEST_F(Refusal, BackupThatIsThereAlreadyIsKept) {
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    write_text(path("tree/file"), "changed");
    expect_failure(run("backup", {"tree", "--name", "b", "--streams", "2"}),
                   "the LSU \"daily\" has a backup \"b\" already");
    EXPECT_THAT(images(), ElementsAre("b.1of1"));
    EXPECT_EQ(run("verify", {"--name", "b", "tree"}).code, 1);
}

TEST_F(Refusal, NamesThatTheStorageCanNotHold) {
    expect_failure(run("backup", {"tree", "--name", "a/b"}),
                   "creating the image \"a/b.lock\" failed: STS_ERR_INVALID");
    expect_failure(run("backup", {"tree", "--name", std::string(256, 'n')}),
                   "is too long: 261 bytes, at most 255");
    const ended long_lsu = tool({"run", "list", "--conf-dir", "conf", "--server", server(), "--lsu",
                                 std::string(2000, 'l')});
    EXPECT_EQ(long_lsu.code, 1);
    EXPECT_THAT(images(), IsEmpty());
}

TEST_F(Refusal, ImageThatIsNoArchiveIsNamed) {
    ASSERT_EQ(run("backup", {"tree", "--name", "a"}).code, 0); // makes the LSU
    put_image("b.1of1", std::string(100000, 'x'));
    const std::string message = "the image \"b.1of1\": holds no whole archive: ";
    const ended restore = run("restore", {"--name", "b", "--to", "r"});
    EXPECT_EQ(restore.code, 1);
    EXPECT_THAT(restore.err, HasSubstr(message));
    const ended verify = run("verify", {"--name", "b", "tree"});
    EXPECT_EQ(verify.code, 1);
    EXPECT_THAT(verify.out, HasSubstr(message));
}

// --- files -------------------------------------------------------------------------------------

TEST_F(Refusal, TargetThatIsNotEmptyIsLeftAlone) {
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    fs::create_directory(path("r"));
    write_text(path("r/mine"), "mine");
    expect_failure(run("restore", {"--name", "b", "--to", "r"}),
                   "r isn't empty: --force restores into it all the same");
    EXPECT_FALSE(fs::exists(path("r/tree")));
}

TEST_F(Refusal, TargetThatIsAFile) {
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    expect_failure(run("restore", {"--name", "b", "--to", "tree/file"}), "tree/file can't be made");
}

TEST_F(Refusal, TreeThatIsNotThereLeavesNoImage) {
    expect_failure(run("backup", {"tree", "elsewhere", "--name", "b"}),
                   "elsewhere: No such file or directory");
    EXPECT_THAT(images(), IsEmpty());
}

TEST_F(Refusal, FiguresThatCanNotBeWrittenEndTheRunBeforeItBegins) {
    expect_failure(run("backup", {"tree", "--name", "b", "--json", path("no/such/file")}),
                   "no/such/file can't be written: No such file or directory");
    expect_failure(run("backup", {"tree", "--name", "b", "--plot", path("conf")}),
                   "conf can't be written: Is a directory");
    EXPECT_THAT(run("list", {}).out, testing::Not(HasSubstr("b.1of1")));
}

TEST_F(Refusal, PictureIsNeverPutWhereFiguresAre) {
    const ended both = run("backup", {"tree", "--name", "b", "--json", "f", "--plot", "./f"});
    EXPECT_EQ(both.code, 2);
    EXPECT_THAT(both.err, HasSubstr("f can't hold both the figures and the picture"));
    EXPECT_FALSE(fs::exists(path("f")));
    ASSERT_EQ(run("backup", {"tree", "--name", "b", "--json", "f"}).code, 0);
    const ended plot = tool({"plot", "f", "--to", path("f")});
    EXPECT_EQ(plot.code, 2);
    EXPECT_THAT(plot.err, HasSubstr("f holds a run: the picture can't be put there"));
    EXPECT_EQ(tool({"plot", "f", "--to", "picture"}).code, 0) << "the figures are gone";
}

// --- settings ----------------------------------------------------------------------------------

TEST_F(Refusal, RateOfZeroIsSaidInsteadOfEndingTheProcess) {
    write_settings("THR:SAMPLE_INTERVAL=30\nTHR:WRITE_BANDWIDTH_PERCENT=0\n");
    const ended backup = run("backup", {"tree", "--name", "b", "--streams", "2"});
    expect_failure(backup, "the settings allow 0 bytes per second for writes now");
    EXPECT_THAT(images(), IsEmpty());
}

TEST_F(Refusal, LogShowsThePluginsWarningsAndVerboseAllOfIt) {
    const auto backup_with_a_bad_setting = [this](const std::vector<std::string>& arguments) {
        write_settings("THR:SAMPLE_INTERVAL=0\nTHR:READ_BANDWIDTH_PERCENT=101\n");
        return run("backup", arguments);
    };
    const std::string warning =
        "plugin warning: [parse_oneline_to_var]invalid read_bandwidth_percent, set to default.\n";
    const std::string debug = "plugin debug: [throttling_open_server_v7]enter.\n";
    const ended quiet = backup_with_a_bad_setting({"tree", "--name", "a"});
    EXPECT_THAT(quiet.err, testing::Not(HasSubstr("plugin warning:")));
    EXPECT_THAT(quiet.err, HasSubstr("conf:2: error: THR:READ_BANDWIDTH_PERCENT: 101 isn't from"));
    const ended log = backup_with_a_bad_setting({"tree", "--name", "b", "--log"});
    EXPECT_THAT(log.err, HasSubstr(warning));
    EXPECT_THAT(log.err, testing::Not(HasSubstr(debug)));
    const ended verbose = backup_with_a_bad_setting({"tree", "--name", "c", "-v"});
    EXPECT_THAT(verbose.err, HasSubstr(warning));
    EXPECT_THAT(verbose.err, HasSubstr(debug));
}

} // namespace
