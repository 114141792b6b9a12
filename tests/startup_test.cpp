/// Start and restart: the documents as seeded, and ground that is not as expected.
#include <filesystem>

#include "store/documents.h"
#include "tests/service.h"
#include "tests/transcript.h"

namespace fs = std::filesystem;

namespace {

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
        send_line("raw 0000000007000000");
        std::string text;
        wait_until("a line on standard error", [&] {
            text += take_standard_error();
            return text.find("INFO CATEGORY : Unknown message type 0 or length 7") !=
                   std::string::npos;
        });
        EXPECT_EQ(text.find(log_configuration_path + std::string(": ")), 0U) << text;
        EXPECT_EQ(text.find("; logging to standard error\n") + 28, text.find('\n') + 1) << text;
        EXPECT_LT(text.find("Unknown message"), text.find('\n', text.find('\n') + 1)) << text;
        stop();
    }

private:
    std::string log_configuration_;
};

}  // namespace

TEST_F(Startup, SeedsTheDocumentsToTheByte)
{
    start();
    for (const StatusDocument& document : status_documents) {
        const std::string file = std::string(document.name) + ".json";
        EXPECT_EQ(text_of(file), kept_text(file));
        EXPECT_EQ(fs::status(document.path).permissions(), fs::perms(0644)) << file;
    }
    settle();
    EXPECT_EQ(events.take_names(), Lines());
}

TEST_F(Startup, GoesOnWithoutAFolderForTheDocuments)
{
    write_file(status_directory, "a file in the folder's place");
    start();
    send_line("power_v_value 5");
    settle();
    EXPECT_EQ(take_standard_error(), "open for write_json_to_file: Not a directory\n");
    EXPECT_EQ(events.take_names(), Lines());
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
             "log4cpp.rootCategory=LOUD\n",
             "log4cpp.rootCategory=INFO, file\nlog4cpp.appender.file=NoAppender\n",
             R"(log4cpp.rootCategory=INFO, file
log4cpp.appender.file=ConsoleAppender
log4cpp.appender.file.layout=PatternLayout
log4cpp.appender.file.layout.ConversionPattern=%Q
)",
         }) {
        configure_log(text);
        expect_log_on_standard_error(text);
    }
}
