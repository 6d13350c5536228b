// One log file and many writers: every line arrives whole and once, in its writer's order.

#include "plugin/throttling_log.h"

#include "tests/log/log_file.h"
#include "tests/support/virtual_clock.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

/// What one writer says. Every third line is longer than a stream's buffer of one block once its
/// head is in front of it, so that it is written in two steps.
std::string message_of(int writer, int number) {
    const auto length = static_cast<size_t>(number % 3 == 0 ? 4094 : (writer * 131 + number) % 300);
    std::string text = "writer " + std::to_string(writer) + " line " + std::to_string(number) + " ";
    text.append(length > text.size() ? length - text.size() : 0,
                static_cast<char>('a' + (writer + number) % 26));
    return text;
}

void write_lines(int writer, int count) {
    for (int number = 0; number < count; ++number) {
        log_msg(nullptr, "f", 1, STS_SEV_ERROR, "%s", message_of(writer, number).c_str());
    }
}

/// One process that opens the log for itself and writes from that many threads at once.
pid_t start_process(int process, int threads, int count) {
    fflush(nullptr); // or each process writes what was still in here
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    if (log_init(5) != 0) {
        _exit(1);
    }
    std::vector<std::thread> others;
    for (int thread = 1; thread < threads; ++thread) {
        others.emplace_back(write_lines, process * threads + thread, count);
    }
    write_lines(process * threads, count);
    for (std::thread& each : others) {
        each.join();
    }
    _exit(log_shutdown() == 0 ? 0 : 2);
}

/// Fails unless every line of every writer stands in `lines` once, whole and in order.
void expect_all_lines(const std::vector<std::string>& lines, int writers, int count) {
    const std::string tag = "[ERROR] ";
    const std::string label = "[no session][f]";
    std::map<int, int> next;
    for (const std::string& line : lines) {
        const size_t start = line.find(label);
        ASSERT_NE(start, std::string::npos) << line;
        ASSERT_EQ(line.substr(0, tag.size()), tag);
        int writer = -1;
        int number = -1;
        const std::string message = line.substr(start + label.size());
        ASSERT_EQ(sscanf(message.c_str(), "writer %d line %d", &writer, &number), 2) << line;
        ASSERT_EQ(number, next[writer]++) << "of writer " << writer;
        const size_t room = tag.size() + 4095 - start - label.size();
        ASSERT_EQ(message, message_of(writer, number).substr(0, room));
    }
    EXPECT_EQ(lines.size(), static_cast<size_t>(writers) * static_cast<size_t>(count));
    EXPECT_EQ(next.size(), static_cast<size_t>(writers));
}

class SharedLog : public testing::Test {
  protected:
    void write_from(int processes, int threads, int count) {
        std::vector<pid_t> children;
        for (int process = 0; process < processes; ++process) {
            children.push_back(start_process(process, threads, count));
        }
        for (const pid_t child : children) {
            int status = -1;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFEXITED(status));
            ASSERT_EQ(WEXITSTATUS(status), 0);
        }
        expect_all_lines(file.lines(), processes * threads, count);
    }

    log_file file;
    virtual_clock clock{local_time(2024, 3, 4)}; // one day, so one file
};

TEST_F(SharedLog, TenProcessesLoseAndTearNoLine) { write_from(10, 1, 1000); }

TEST_F(SharedLog, ThreadsOfOneProcessLoseAndTearNoLine) { write_from(1, 8, 500); }

TEST_F(SharedLog, ThreadsOfSeveralProcessesLoseAndTearNoLine) { write_from(4, 4, 300); }

} // namespace
