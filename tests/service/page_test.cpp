// The page in a browser: what it shows of a service that is running.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <regex>
#include <thread>

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

/// The page's document once its first answers are drawn.
std::string open_page(int port) {
    const std::string profile =
        (std::filesystem::temp_directory_path() / ("page-" + std::to_string(getpid()))).string();
    const ended browser = run_process({CHROMIUM, "--headless=new", "--no-sandbox", "--disable-gpu",
                                       "--disable-dev-shm-usage", "--user-data-dir=" + profile,
                                       "--virtual-time-budget=3000", "--dump-dom",
                                       "http://127.0.0.1:" + std::to_string(port) + "/"});
    std::filesystem::remove_all(profile);
    EXPECT_EQ(browser.code, 0) << browser.err;
    return browser.out;
}

size_t count(const std::string& text, const std::string& what) {
    const std::regex pattern(what);
    return static_cast<size_t>(
        std::distance(std::sregex_iterator(text.begin(), text.end(), pattern), {}));
}

TEST(Page, ShowsEachStorageWithItsFiguresAndCharts) {
    const service_process service;
    const remote_session one(service.port());
    const remote_session other(service.port());
    one.configure("name=THR:s3,description=d,type=int,value=4,fixed=n;"
                  "name=THR:tape,description=d,type=int,value=1,fixed=n;"
                  "name=THR:AVAIL_BANDWIDTH,description=d,type=int,value=100000000,fixed=y;"
                  "name=THR:SAMPLE_INTERVAL,description=d,type=int,value=30,fixed=y;");
    one.check_connections("a:s3", 1);
    other.check_connections("a:s3", 1);
    other.check_connections("a:tape", 1);
    one.check_connections("a:tape", 1);
    one.report("w:s3", 420000000, 10);
    other.report("w:s3", 84000000, 10);
    other.report("r:s3", 15000000, 10);

    const std::string page = open_page(service.http_port());
    EXPECT_THAT(page, HasSubstr("2 sessions, up "));
    EXPECT_THAT(page, ContainsRegex("id=\"state\"[^>]*>live<"));
    EXPECT_THAT(page, ContainsRegex("<h2>s3</h2>"));
    EXPECT_THAT(page, ContainsRegex("class=\"connections\">2 of 4<"));
    EXPECT_THAT(page, ContainsRegex("class=\"connections\">1 of 1<"));
    EXPECT_THAT(page, ContainsRegex("class=\"readers\">1<"));
    EXPECT_THAT(page, ContainsRegex("class=\"writers\">2<"));
    EXPECT_THAT(page, ContainsRegex("class=\"refused\">1<"));
    EXPECT_THAT(page, HasSubstr("<b>50.4 MB/s</b> <span class=\"quiet\">of 100 MB/s</span>"));
    EXPECT_THAT(page, HasSubstr("<b>1.5 MB/s</b> <span class=\"quiet\">of 100 MB/s</span>"));
    EXPECT_EQ(count(page, "<path class=\"measured\" d=\"M[-0-9.HMV ]+\""), 4U);
    EXPECT_EQ(count(page, "<path class=\"allowed\" d=\"M[-0-9.HMV ]+\""), 4U);
    EXPECT_THAT(page, HasSubstr("aria-label=\"Write rate over the last 2 minutes: now 50.4 MB/s of "
                                "100 MB/s allowed, at most 50.4 MB/s\""));
}

TEST(Page, ChartsShowThePastMinutesOfAFreshPageInRealTime) {
    const service_process service;
    const remote_session client(service.port());
    client.configure("name=THR:SAMPLE_INTERVAL,description=d,type=int,value=600,fixed=y;");
    client.report("w:s3", 5000000, 1);
    while (service.storage("s3")["history"]["time"].size() < 2) {
        usleep(100000);
    }
    client.report("w:s3", 1000000, 1);
    const std::string page = open_page(service.http_port());
    EXPECT_THAT(page, HasSubstr("now 1.0 MB/s of 105 MB/s allowed, at most 5.0 MB/s\""));
    // A step for each point of history, and one for now.
    EXPECT_THAT(page, ContainsRegex("class=\"measured\" d=\"M[0-9.]+ [0-9.]+(H[0-9.]+V[0-9.]+)+"
                                    "H1000.0V[0-9.]+\""));
}

TEST(Page, NamesAreShownAsTheyAreAndNothingMore) {
    const service_process service;
    const remote_session client(service.port());
    client.check_connections("a:<img src=x onerror=\"document.title='hacked'\">", 1);
    client.check_connections("a:</script><script>document.title='hacked'</script>", 1);
    client.check_connections("a:__proto__", 1);
    const std::string page = open_page(service.http_port());
    EXPECT_THAT(page, HasSubstr("<h2>&lt;img src=x onerror=\"document.title='hacked'\"&gt;</h2>"));
    EXPECT_THAT(page, HasSubstr("<h2>&lt;/script&gt;&lt;script&gt;document.title='hacked'"));
    EXPECT_THAT(page, HasSubstr("<h2>__proto__</h2>"));
    EXPECT_THAT(page, HasSubstr("<title>Storage bandwidth</title>"));
    EXPECT_THAT(page, Not(HasSubstr("<img")));
}

/// Stands between the browser and the service, so that things happen between two of the page's
/// questions.
class onlooker {
  public:
    /// `before` is called with the number of each question, from 1. What it returns is the status
    /// of the answer; other than 200 keeps the service out of it.
    onlooker(const service_process& service, std::function<int(int)> before) {
        server_.Get("/", [&](const httplib::Request&, httplib::Response& response) {
            response.set_content(service.get("/"), "text/html");
        });
        server_.Get(
            "/status", [&, before](const httplib::Request& request, httplib::Response& response) {
                response.status = before(++questions_);
                if (response.status == 200) {
                    const std::string since = request.get_param_value("since");
                    response.set_content(service.get("/status?since=" + since), "application/json");
                }
            });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~onlooker() {
        while (!server_.is_running()) { // a stop before that would be missed
            std::this_thread::yield();
        }
        server_.stop();
        thread_.join();
    }

    int port() const { return port_; }
    int questions() const { return questions_; }

  private:
    httplib::Server server_;
    std::atomic<int> questions_ = 0;
    int port_;
    std::thread thread_;
};

TEST(Page, FollowsWhatChangesWhileItIsOpen) {
    const service_process service;
    const remote_session client(service.port());
    client.configure("name=THR:s3,description=d,type=int,value=4,fixed=n;");
    client.check_connections("a:s3", 1);
    const onlooker between(service, [&](int question) {
        if (question == 2) {
            client.check_connections("a:s3", 1);
            client.check_connections("a:tape", 1);
            client.report("w:tape", 84000000, 10);
            client.configure("name=THR:s3,description=d,type=int,value=9,fixed=n;");
        }
        return 200;
    });
    const std::string page = open_page(between.port());
    EXPECT_GE(between.questions(), 2);
    EXPECT_THAT(page, ContainsRegex("class=\"connections\">2 of 9<"));
    EXPECT_THAT(page, Not(ContainsRegex("class=\"connections\">1 of 4<")));
    EXPECT_THAT(page, ContainsRegex("<h2>tape</h2>"));
    EXPECT_THAT(page, HasSubstr("<b>8.4 MB/s</b>"));
    EXPECT_EQ(count(page, "<h2>s3</h2>"), 1U);
}

TEST(Page, SaysWhenTheServiceNoLongerAnswersAndKeepsWhatItShowed) {
    const service_process service;
    const remote_session client(service.port());
    client.check_connections("a:s3", 1);
    const onlooker between(service, [](int question) { return question == 1 ? 200 : 503; });
    const std::string page = open_page(between.port());
    EXPECT_THAT(page, ContainsRegex("id=\"state\"[^>]*>no answer from the service<"));
    EXPECT_THAT(page, ContainsRegex("class=\"connections\">1 of 10<"));
}

TEST(Page, IsLiveAgainWhenTheServiceAnswersAgain) {
    const service_process service;
    const onlooker between(service, [](int question) { return question == 1 ? 503 : 200; });
    const std::string page = open_page(between.port());
    EXPECT_GE(between.questions(), 2);
    EXPECT_THAT(page, ContainsRegex("id=\"state\"[^>]*>live<"));
}

TEST(Page, SaysWhenThereIsNothingToShow) {
    const service_process service;
    EXPECT_THAT(open_page(service.http_port()), HasSubstr("No storage is known yet."));
}

} // namespace
