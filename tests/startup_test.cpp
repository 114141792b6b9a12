/// Start and restart: the documents as seeded, and ground that is not as expected.
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <utility>

#include "tests/service.h"

namespace fs = std::filesystem;

namespace {

const std::pair<std::string, std::size_t> seeded_sizes[] = {
    {"inputs.json", 2945}, {"usb-host.json", 1096}, {"ethernet.json", 844},
    {"power.json", 121},   {"outputs.json", 247},
};

class Startup : public StoppedServiceTest {
protected:
    void SetUp() override
    {
        StoppedServiceTest::SetUp();
        log_configuration_ = read_file(log_configuration_path);
    }

    void TearDown() override
    {
        StoppedServiceTest::TearDown();
        configure_log(log_configuration_);
    }

    static void configure_log(const std::string& text)
    {
        fs::remove(log_configuration_path);
        write_file(log_configuration_path, text);
    }

    /// The service runs, says one line about the log configuration, and logs behind it.
    void expect_log_on_standard_error(const std::string& what)
    {
        SCOPED_TRACE(what);
        start();
        send(0, 7);
        std::string text;
        wait_until("a line on standard error", [&] {
            text += take_standard_error();
            return text.find("Unknown message type 0 or length 7") != std::string::npos;
        });
        EXPECT_EQ(text.find(log_configuration_path), 0U) << text;
        EXPECT_LT(text.find("Unknown message"), text.find('\n', text.find('\n') + 1)) << text;
        EXPECT_EQ(value_of("power.json", ".power.power_source"), "PoE");
        stop();
    }

private:
    std::string log_configuration_;
};

}  // namespace

TEST_F(Startup, SeedsTheDocumentsToTheByte)
{
    start();
    for (const auto& [name, size] : seeded_sizes) {
        const std::string text = text_of(name);
        EXPECT_EQ(text.size(), size) << name;
        EXPECT_EQ(text.substr(text.size() - 3), "\n}\n") << name;
        struct stat status = {};
        stat(path_of(name).c_str(), &status);
        EXPECT_EQ(status.st_mode & 07777U, 0644U) << name;
    }
    const std::string inputs = text_of("inputs.json");
    EXPECT_EQ(inputs.find("\"index\":1,\n"), inputs.find("\"index\""));
    EXPECT_NE(inputs.find("\"index\": 1,\n"), std::string::npos);
    EXPECT_EQ(value_of("inputs.json", ".inputs[1].video.hdcp.control.allowed_hdcp_version"),
              "HDCP 2.2");
    EXPECT_EQ(value_of("inputs.json", ".inputs[2].control.enabled"), true);
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[3].type"), "USB-Ethernet");
    EXPECT_EQ(text_of("power.json"),
              "{\n  \"power\": {\n    \"power_source\": \"PoE\",\n"
              "    \"measured_power_voltage_v\": 11900,\n"
              "    \"measured_power_current_a\": 0\n  }\n}\n");
    settle();
    EXPECT_EQ(events.take_names(), std::vector<std::string>{});
}

TEST_F(Startup, KeepsThreeDocumentsOverARestartAndResetsTwo)
{
    start();
    for (const auto& [name, size] : seeded_sizes) {
        write_document(name, "damaged");
    }
    stop();
    start();  // over the socket file of the first run
    for (const char* kept : {"inputs.json", "ethernet.json", "outputs.json"}) {
        EXPECT_EQ(text_of(kept), "damaged") << kept;
    }
    EXPECT_EQ(text_of("usb-host.json").size(), 1096U);
    EXPECT_EQ(text_of("power.json").size(), 121U);
    settle();
}

TEST_F(Startup, PublishesTheFirstReportOverAnEqualDocument)
{
    const auto report = [] { send_line("link_status"); };
    start();
    report();
    settle();
    const std::string published = text_of("inputs.json");
    stop();
    start();
    EXPECT_EQ(accesses_by("inputs.json", report), rewritten);
    EXPECT_EQ(text_of("inputs.json"), published);
}

TEST_F(Startup, GoesOnWithoutAFolderForTheDocuments)
{
    write_file(status_directory, "a file in the folder's place");
    start();
    send_line("power_v_value 5");
    settle();
    EXPECT_EQ(take_standard_error(), "open for write_json_to_file: Not a directory\n");
    EXPECT_EQ(events.take_names(), std::vector<std::string>{});
}

TEST_F(Startup, LogsToStandardErrorWhereTheLogConfigurationIsOfNoUse)
{
    fs::remove(log_configuration_path);
    expect_log_on_standard_error("missing");
    fs::create_directory(log_configuration_path);
    expect_log_on_standard_error("a folder");
    for (const char* text : {
             "",
             "\x01\x02\xff no configuration",
             "log4cpp.rootCategory=INFO, missing_appender\n",
             "log4cpp.rootCategory=LOUD\n",
             "log4cpp.rootCategory=INFO, file\nlog4cpp.appender.file=NoAppender\n",
             "log4cpp.rootCategory=INFO, file\nlog4cpp.appender.file=ConsoleAppender\n"
             "log4cpp.appender.file.layout=NoLayout\n",
             "log4cpp.rootCategory=INFO, file\nlog4cpp.appender.file=ConsoleAppender\n"
             "log4cpp.appender.file.layout=PatternLayout\n"
             "log4cpp.appender.file.layout.ConversionPattern=%Q\n",
         }) {
        configure_log(text);
        expect_log_on_standard_error(text);
    }
}

TEST_F(Startup, EndsWithStatus1WhereTheSocketCannotBeBound)
{
    fs::create_directory(message_socket_path);
    launch();
    EXPECT_EQ(wait_exit(), 1);
    EXPECT_EQ(take_standard_error(), "bind: Address already in use\n");
    EXPECT_EQ(text_of("inputs.json").size(), 2945U);  // seeded before the threads start
}

TEST_F(Startup, EndsWithStatus1WhereAThreadCannotBeStarted)
{
#ifdef THREAD_SANITIZED
    GTEST_SKIP() << "the thread sanitizer has no room for such a stack";
#endif
    if (has_stand_in()) {
        GTEST_SKIP() << "a checker gives another reason";
    }
    launch([] {
        // The size of a thread's stack: more than the address space has.
        const rlim_t size = sizeof(void*) == 8 ? rlim_t{1} << 50U : rlim_t{0xF0000000};
        const rlimit limit = {size, RLIM_INFINITY};
        setrlimit(RLIMIT_STACK, &limit);
    });
    EXPECT_EQ(wait_exit(), 1);
    EXPECT_EQ(take_standard_error(), "pthread_create: Resource temporarily unavailable\n");
}
