#include "tools/ctl/table_print.h"

#include <gtest/gtest.h>

using json = nlohmann::ordered_json;

TEST(TablePrint, DisplayWidthCountsWideCharactersTwice) {
    EXPECT_EQ(0u, ctl::DisplayWidth(""));
    EXPECT_EQ(6u, ctl::DisplayWidth("IF2412"));
    EXPECT_EQ(8u, ctl::DisplayWidth(u8"取函数列"));
    EXPECT_EQ(11u, ctl::DisplayWidth(u8"0合约代码ab"));
    // Stray and truncated bytes count one column each, never read past the end.
    EXPECT_EQ(2u, ctl::DisplayWidth(std::string("\xff\xe4", 2)));
    EXPECT_EQ(3u, ctl::DisplayWidth(std::string("a\xe4\xb8", 3)));
}

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
    EXPECT_EQ("(no rows)\n", ctl::FormatTable(json::object()).substr(2));
}
