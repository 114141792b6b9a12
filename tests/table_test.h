/// Cases whose steps stand as data in tests/tables: what is sent, and what becomes of a document.
///
/// A file is JSON with comments. It holds cases by their names, "Suite.Case"; a case is a list of
/// tables, played in their order on one run of the service. A table has `columns` and `rows`, whose
/// last cells may be left out, and beside them what all its rows share:
///
///   why        what the row shows
///   document   the document that the row is about: "inputs.json"
///   before     what it is made first: null for missing, a text as it is, or a value
///   alone      a path: nothing outside of it is touched, whatever stands there
///   send       one line of `send_line`, or a list of several, of which a long one can be
///              a list of its pieces
///   cost       "none", "read", "rewritten" or "created" (Accesses), or [reads, writes]
///   at         where `after` is found, a path or several; without it, the whole document
///   after      what is there then, a value for each path
///   events     the names of the events that have come by then
///   logs       the line, or the pieces of the line, that the log gains; "" for none
///
/// The cells of a column such as "<rate>" stand in for its name in the texts of the table, and
/// one that is left out for nothing.
/// A test that takes its rows by `rows_of` can have columns of its own.
#pragma once

#include "tests/service.h"

/// The document with a word in place of each value that is neither array nor object.
Json::Value filled(Json::Value value);

/// A text as it is, or the pieces in the list joined.
std::string joined(const Json::Value& text);

/// The rows of a case, each with all that its table says; fails the case where there are none.
std::vector<Json::Value> rows_of(const std::string& name);

class TableTest : public ServiceTest {
protected:
    /// Plays the tables of the case that runs.
    void play();
    void play(const Json::Value& row);

    /// Makes a document missing (null), a text as it is, or a value.
    static void make_document(const std::string& name, const Json::Value& content);
    /// Checks that the log gains this line, a text or its pieces, and no other; "" for none.
    void expect_logged(const Json::Value& line, const Action& action);
    /// What an action, or a line of `send_line`, costs of `inputs.json`.
    Accesses cost_of(const Action& action) { return accesses_by("inputs.json", action); }
    Accesses cost_of(const std::string& line)
    {
        return cost_of([&line] { send_line(line); });
    }

private:
    /// Leaves of the document what stands at the path, all else filled; gives what that makes.
    static Json::Value fill_around(const std::string& name, const Json::Path& path);
};

/// A case that is nothing but its tables.
#define PLAYED_TEST(suite, name) \
    TEST_F(suite, name)          \
    {                            \
        play();                  \
    }
