#include "tools/ctl/table_print.h"

#include <gtest/gtest.h>

using json = nlohmann::ordered_json;

TEST(TablePrint, ColumnsLineUpByDisplayWidth) {
    json t = {{"columns", {{{"name", "function_id"}}, {{"name", "function_name"}}}},
              {"rows", {{0, u8"取函数列表"}, {10, "x"}}}};
    std::string out = ctl::FormatTable(t);
    EXPECT_EQ(std::string("function_id  function_name\n"
                          "-----------  -------------\n"
                          "0            ") + u8"取函数列表" + "\n"
                          "10           x\n",
              out);
    // Chinese header wider than the values: values are padded to it.
    json c = {{"columns", {{{"name", u8"状态"}}, {{"name", "b"}}}}, {"rows", json::array({json::array({"1", 2.5})})}};
    EXPECT_EQ(std::string(u8"状态  b\n----  ---\n1     2.5\n"), ctl::FormatTable(c));
}

TEST(TablePrint, EmptyRaggedAndOddValues) {
    EXPECT_EQ("a\n-\n(no rows)\n", ctl::FormatTable({{"columns", {{{"name", "a"}}}}, {"rows", json::array()}}));
    // A row longer than the header and a null cell do not break the layout.
    json t = {{"columns", {{{"name", "a"}}}}, {"rows", {{1, nullptr, "z"}}}};
    EXPECT_EQ("a\n-    -\n1    z\n", ctl::FormatTable(t));
    EXPECT_EQ("3861.4", ctl::CellText(3861.4));
    EXPECT_EQ("-80", ctl::CellText(-80.0));
    EXPECT_EQ("7", ctl::CellText(7));
    EXPECT_EQ("", ctl::CellText(nullptr));
    // A ctime text keeps its row on one line.
    t = {{"columns", {"a", "b"}}, {"rows", {{1, "Mon Jan  1 09:00:00 2024\n"}}}};
    EXPECT_EQ("a  b\n-  " + std::string(26, '-') + "\n1  Mon Jan  1 09:00:00 2024\\n\n", ctl::FormatTable(t));
    EXPECT_EQ("(no rows)\n", ctl::FormatTable(json::object()).substr(2));
}
