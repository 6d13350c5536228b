// "complete": what may stand next on a command line.
//
//   throttlectl complete -- WORD...
//
// The words are those behind the program's name; the last is the one that is being typed, and may be empty. A
// line for each that it may become: the word, a tab, and what it is. Commands and options are those that the
// program itself reads; what an option takes is known by the name that its help has for it. Where nothing is
// printed a file may stand there, or anything.

#include "tools/complete/command.h"

#include "tools/complete/known_names.h"
#include "tools/host/records.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <cstdlib>
#include <fmt/format.h>
#include <map>
#include <set>
#include <sstream>

namespace {

/// A command line, read up to the word that is being typed.
class begun_line {
  public:
    begun_line(const CLI::App& program, const std::vector<std::string>& words);

    /// What the last word may become.
    candidates next() const;
    /// What an option was given; empty: nothing.
    std::string given(const std::string& option) const;
    std::string given_or(const std::string& option, const std::string& other) const;

  private:
    void read(const std::string& word);
    const CLI::Option* option_named(const std::string& word) const;
    const CLI::App* command_named(const std::string& word) const;
    const CLI::Option* next_positional() const;
    candidates options() const;
    candidates commands() const;
    candidates values(const CLI::Option& option, const std::string& begun) const;

    const CLI::App& program_;
    const CLI::App* command_;
    const CLI::Option* wants_value_ = nullptr; ///< the option that the next word belongs to
    bool has_options_ = true;                  ///< "--" ends them
    size_t positionals_ = 0;
    std::map<std::string, std::string> given_;
    std::string last_;
};

bool takes_value(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

begun_line::begun_line(const CLI::App& program, const std::vector<std::string>& words)
    : program_(program), command_(&program) {
    if (words.empty()) {
        return;
    }
    for (size_t i = 0; i + 1 < words.size(); ++i) {
        read(words[i]);
    }
    last_ = words.back();
}

const CLI::Option* begun_line::option_named(const std::string& word) const {
    const CLI::Option* const own = command_->get_option_no_throw(word);
    return own != nullptr ? own : program_.get_option_no_throw(word);
}

const CLI::App* begun_line::command_named(const std::string& word) const {
    for (const CLI::App* each : command_->get_subcommands([](const CLI::App*) { return true; })) {
        if (each->check_name(word)) {
            return each;
        }
    }
    return nullptr;
}

void begun_line::read(const std::string& word) {
    if (wants_value_ != nullptr) {
        given_[wants_value_->get_name()] = word;
        wants_value_ = nullptr;
    } else if (has_options_ && word == "--") {
        has_options_ = false;
    } else if (has_options_ && word.size() > 1 && word[0] == '-') {
        const size_t equals = word.find('=');
        const CLI::Option* const option = option_named(word.substr(0, equals));
        if (option != nullptr && takes_value(*option)) {
            if (equals == std::string::npos) {
                wants_value_ = option;
            } else {
                given_[option->get_name()] = word.substr(equals + 1);
            }
        }
    } else if (const CLI::App* const command = command_named(word)) {
        command_ = command;
        positionals_ = 0;
    } else {
        ++positionals_;
    }
}

std::string begun_line::given(const std::string& option) const { return given_or(option, ""); }

std::string begun_line::given_or(const std::string& option, const std::string& other) const {
    const auto found = given_.find(option);
    return found != given_.end() ? found->second : other;
}

const CLI::Option* begun_line::next_positional() const {
    size_t left = positionals_;
    for (const CLI::Option* each :
         command_->get_options([](const CLI::Option* any) { return any->get_positional(); })) {
        const auto most = static_cast<size_t>(each->get_items_expected_max());
        if (left < most) {
            return each;
        }
        left -= most;
    }
    return nullptr;
}

candidates begun_line::options() const {
    candidates found;
    std::set<const CLI::App*> apps = {command_, &program_};
    for (const CLI::App* app : apps) {
        for (const CLI::Option* each :
             app->get_options([](const CLI::Option* any) { return any->nonpositional(); })) {
            // The program's own version and help aren't the command's.
            if (app != command_ && each == app->get_version_ptr()) {
                continue;
            }
            for (const std::string& name : each->get_lnames()) {
                found.push_back({"--" + name, each->get_description()});
            }
        }
    }
    return found;
}

candidates begun_line::commands() const {
    candidates found;
    for (const CLI::App* each : command_->get_subcommands([](const CLI::App*) { return true; })) {
        if (!each->get_group().empty()) {
            found.push_back({each->get_name(), each->get_description()});
        }
    }
    return found;
}

candidates begun_line::values(const CLI::Option& option, const std::string& begun) const {
    const std::string type = option.get_positional() && option.get_type_name().empty()
                                 ? option.get_name(true)
                                 : option.get_type_name();
    server_options server;
    server.plugin = given("--plugin");
    server.server = given("--server");
    const std::string lsu = given("--lsu");
    if (type == "NAME") {
        const bool is_config =
            command_->get_parent() != nullptr && command_->get_parent()->get_name() == "config";
        return known_servers(begun, is_config ? "global" : "t1");
    }
    if (type == "LSU") {
        if (option.check_name("--to-lsu")) {
            server.server = given_or("--to-server", server.server);
        }
        return known_lsus(server);
    }
    if (type == "IMAGE") {
        return known_images(server, lsu);
    }
    if (type == "GROUP") {
        return known_groups(server, lsu);
    }
    if (type == "BACKUP") {
        return known_backups(server, lsu);
    }
    if (type == "KEY" || type == "SETTING") {
        return known_keys(type == "KEY" ? "" : "=");
    }
    if (type == "ENTRY") {
        return known_entries();
    }
    candidates found;
    if (type == "KIND") {
        for (const std::string& each : event_kinds()) {
            found.push_back({each, ""});
        }
    } else if (type.find('|') != std::string::npos) {
        std::istringstream all(type);
        for (std::string each; std::getline(all, each, '|');) {
            found.push_back({each, ""});
        }
    }
    return found;
}

candidates begun_line::next() const {
    if (wants_value_ != nullptr) {
        return values(*wants_value_, last_);
    }
    if (has_options_ && !last_.empty() && last_[0] == '-') {
        const size_t equals = last_.find('=');
        if (equals == std::string::npos) {
            return options();
        }
        candidates found;
        const std::string name = last_.substr(0, equals);
        const CLI::Option* const option = option_named(name);
        if (option != nullptr && takes_value(*option)) {
            found = values(*option, last_.substr(equals + 1));
        }
        for (candidate& each : found) {
            each.word.insert(0, name + "=");
        }
        return found;
    }
    candidates found = commands();
    if (const CLI::Option* const positional = next_positional()) {
        for (candidate& each : values(*positional, last_)) {
            found.push_back(std::move(each));
        }
    }
    return found;
}

/// Sorted, each once. A name that a terminal can't show as it is can't be typed either.
int print_next(const CLI::App& program, const std::vector<std::string>& words) {
    const begun_line line(program, words);
    if (const std::string conf_dir = line.given("--conf-dir"); !conf_dir.empty()) {
        setenv("VL_CONF_DIR", conf_dir.c_str(), 1);
    }
    const std::string begun = words.empty() ? "" : words.back();
    std::map<std::string, std::string> shown;
    for (const candidate& each : line.next()) {
        if (!each.word.empty() && each.word.rfind(begun, 0) == 0 &&
            printable(each.word) == each.word) {
            shown.emplace(each.word, each.about);
        }
    }
    for (const auto& [word, about] : shown) {
        fmt::print("{}\t{}\n", word, printable(about));
    }
    return EXIT_DONE;
}

} // namespace

void add_complete(CLI::App& app, request& asked) {
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* const complete = app.add_subcommand("complete", "What may stand next")->group("");
    complete->add_option("WORD", *words, "The words so far, behind \"--\"");
    chooses(*complete, asked, [&app, words] { return print_next(app, *words); });
}
