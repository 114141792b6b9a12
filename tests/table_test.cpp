#include "tests/table_test.h"

#include <sys/stat.h>

#include <filesystem>
#include <set>

namespace {

constexpr std::pair<const char*, const char*> files[] = {
#include "table_rows.inc"
};

const std::set<std::string> members = {"why",  "document", "before", "alone",  "send",
                                       "cost", "at",       "after",  "events", "logs"};

bool is_test(const std::string& name)
{
    const ::testing::UnitTest& tests = *::testing::UnitTest::GetInstance();
    for (int i = 0; i < tests.total_test_suite_count(); ++i) {
        const ::testing::TestSuite& suite = *tests.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            if (name == std::string(suite.name()) + "." + suite.GetTestInfo(j)->name()) {
                return true;
            }
        }
    }
    return false;
}

/// The tables of all files by the names of their cases, each of which has its test.
Json::Value read_tables()
{
    Json::Value tables;
    for (const auto& [file, text] : files) {
        const Json::Value cases = parsed(text);
        for (const std::string& name : cases.getMemberNames()) {
            EXPECT_TRUE(is_test(name)) << name << " of " << file;
            EXPECT_FALSE(tables.isMember(name)) << name << " stands in two files";
            tables[name] = cases[name];
        }
    }
    return tables;
}

/// What the value holds, or the value itself where it is no list.
std::vector<Json::Value> items(const Json::Value& value)
{
    return value.isArray() ? std::vector<Json::Value>(value.begin(), value.end())
                           : std::vector<Json::Value>{value};
}

Json::Value as_value(const std::vector<std::string>& texts)
{
    Json::Value list = Json::arrayValue;
    for (const std::string& text : texts) {
        list.append(text);
    }
    return list;
}

/// What stands at a path, or a list of what stands at each of several.
Json::Value found_at(const Json::Value& paths, const Json::Value& root)
{
    if (!paths.isArray()) {
        return Json::Path(paths.asString()).resolve(root);
    }
    Json::Value found = Json::arrayValue;
    for (const Json::Value& path : paths) {
        found.append(found_at(path, root));
    }
    return found;
}

Accesses accesses(const Json::Value& cost)
{
    static const std::map<std::string, Accesses> words = {
        {"none", no_access}, {"read", only_read}, {"rewritten", rewritten}, {"created", created}};
    return cost.isArray() ? Accesses{cost[0].asInt(), cost[1].asInt()} : words.at(cost.asString());
}

/// Puts the cell in the place of its column's name in all texts of the value.
void put_in(Json::Value& value, const std::string& column, const Json::Value& cell)
{
    if (value.isString()) {
        std::string text = value.asString();
        std::size_t place = 0;
        while ((place = text.find(column)) != std::string::npos) {
            text.replace(place, column.size(), cell.asString());
        }
        value = text;
    }
    for (Json::Value& item : value) {
        put_in(item, column, cell);
    }
}

}  // namespace

Json::Value filled(Json::Value value)
{
    if (!value.isArray() && !value.isObject()) {
        return "left";
    }
    for (Json::Value& member : value) {
        member = filled(member);
    }
    return value;
}

std::string joined(const Json::Value& text)
{
    std::string whole;
    for (const Json::Value& piece : items(text)) {
        whole += piece.asString();
    }
    return whole;
}

std::vector<Json::Value> rows_of(const std::string& name)
{
    static const Json::Value all_tables = read_tables();
    std::vector<Json::Value> rows;
    for (const Json::Value& table : all_tables[name]) {
        EXPECT_FALSE(table["rows"].empty() || table["columns"].empty()) << name;
        for (const Json::Value& cells : table["rows"]) {
            Json::Value& row = rows.emplace_back(table);
            row.removeMember("rows");
            row.removeMember("columns");
            for (Json::ArrayIndex i = 0; i < table["columns"].size(); ++i) {
                const std::string column = table["columns"][i].asString();
                if (column[0] == '<') {
                    put_in(row, column, cells[i]);
                } else if (i < cells.size()) {
                    row[column] = cells[i];
                }
            }
        }
    }
    EXPECT_FALSE(rows.empty()) << name;
    return rows;
}

void TableTest::play()
{
    const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
    for (const Json::Value& row :
         rows_of(test.test_suite_name() + std::string(".") + test.name())) {
        play(row);
    }
}

void TableTest::play(const Json::Value& row)
{
    SCOPED_TRACE(row["why"].asString() + row["send"].toStyledString());
    for (const std::string& member : row.getMemberNames()) {
        EXPECT_EQ(members.count(member), 1U) << member;
    }
    EXPECT_TRUE(row.isMember("after") || row.isMember("cost") || row.isMember("events") ||
                row.isMember("logs"))
        << "nothing is checked";
    EXPECT_TRUE(row.isMember("after") || !row.isMember("at"));
    const std::string name = row["document"].asString();
    settle();
    events.take_names();
    if (row.isMember("before")) {
        make_document(name, row["before"]);
    }
    const Json::Path touched(row["alone"].asString());
    Json::Value expected = row.isMember("alone") ? fill_around(name, touched) : Json::Value();

    const Action send_lines = [&row] {
        for (const Json::Value& line : items(row["send"])) {
            send_line(joined(line));
        }
    };
    const Accesses cost = accesses_by(name, [&] {
        row.isMember("logs") ? expect_logged(row["logs"], send_lines) : send_lines();
    });
    if (row.isMember("cost")) {
        EXPECT_EQ(cost, accesses(row["cost"]));
    }
    if (row.isMember("events")) {
        EXPECT_EQ(as_value(events.take_names()), row["events"]);
    }
    if (row.isMember("after")) {
        EXPECT_EQ(row.isMember("at") ? found_at(row["at"], document(name)) : document(name),
                  row["after"]);
    }
    if (row.isMember("alone")) {
        touched.make(expected) = touched.resolve(document(name));
        EXPECT_EQ(document(name), expected);
    }
    if (struct stat status = {}; cost == created && stat(path_of(name).c_str(), &status) == 0) {
        EXPECT_EQ(status.st_mode & 07777U, 0644U);
    }
}

void TableTest::expect_logged(const Json::Value& line, const Action& action)
{
    const std::string text = joined(line);
    EXPECT_EQ(logged_by(action), std::vector<std::string>(text.empty() ? 0 : 1, text));
}

Json::Value TableTest::fill_around(const std::string& name, const Json::Path& path)
{
    const Json::Value root = document(name);
    Json::Value around = filled(root);
    path.make(around) = path.resolve(root);
    make_document(name, around);
    return around;
}

void TableTest::make_document(const std::string& name, const Json::Value& content)
{
    if (content.isNull()) {
        std::filesystem::remove(path_of(name));
    } else {
        write_document(name, content.isString() ? content.asString() : content.toStyledString());
    }
}
