/// Start and restart: the documents as seeded, and ground that is not as expected.
#include <filesystem>
#include <regex>

#include "store/documents.h"
#include "tests/service.h"
#include "tests/transcript.h"

namespace fs = std::filesystem;

using Startup = StoppedServiceTest;

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

// One line about the configuration, and the log behind it.
TEST_F(Startup, LogsToStandardErrorWhereTheLogConfigurationIsOfNoUse)
{
    const std::string configuration = read_file(log_configuration_path);
    const std::regex lines(log_configuration_path +
                           std::string(": .+; logging to standard error\n\\d+ INFO CATEGORY : "
                                       "Unknown message type 0 or length 7\n --.*\\]\n"));
    for (const char* text : {
             "missing",
             "a folder",
             "",
             "\x01\x02\xff no configuration",
             "log4cpp.rootCategory=LOUD\n",
             "log4cpp.rootCategory=INFO, file\nlog4cpp.appender.file=NoAppender\n",
             R"(log4cpp.rootCategory=INFO, file
log4cpp.appender.file=ConsoleAppender
log4cpp.appender.file.layout=PatternLayout
log4cpp.appender.file.layout.ConversionPattern=%Q
)",
             // Half of it holds before it fails.
             R"(log4cpp.rootCategory=ERROR, file, none
log4cpp.appender.file=FileAppender
log4cpp.appender.file.fileName=/dev/stderr
log4cpp.appender.file.layout=BasicLayout
)",
         }) {
        SCOPED_TRACE(text);
        fs::remove(log_configuration_path);
        if (text == std::string("a folder")) {
            fs::create_directory(log_configuration_path);
        } else if (text != std::string("missing")) {
            write_file(log_configuration_path, text);
        }
        start();
        send_line("raw 0000000007000000");
        std::string said;
        wait_until("a line on standard error", [&] {
            said += take_standard_error();
            return said.find("]\n") != std::string::npos;
        });
        EXPECT_TRUE(std::regex_match(said, lines)) << said;
        stop();
    }
    fs::remove(log_configuration_path);
    write_file(log_configuration_path, configuration);
}
