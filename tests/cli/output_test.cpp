#include "cli/output.h"

#include <gtest/gtest.h>

#include <sstream>

#include "cli/failure.h"

namespace cli {
namespace {

using Align = Column::Align;

class OutputTest : public testing::Test {
 protected:
  std::ostringstream stream_;
  Output output_{stream_};
};

TEST_F(OutputTest, LinesUpTheValuesOfARecord) {
  output_.record({{"a", "1"}, {"longer", "two words"}});
  EXPECT_EQ(stream_.str(),
            "a       1\n"
            "longer  two words\n");
}

TEST_F(OutputTest, MakesColumnsAsWideAsTheirWidestCell) {
  output_.table({{"NAME"}, {"N", Align::right}, {"LAST"}},
                {{"a", "1", "x"}, {"longer", "1000", ""}, {"", "", ""}});
  EXPECT_EQ(stream_.str(),
            "NAME       N  LAST\n"
            "a          1  x\n"
            "longer  1000\n"
            "\n");
}

TEST_F(OutputTest, ShowsTheTitlesOfATableWithoutRows) {
  output_.table({{"NAME"}, {"N", Align::right}}, {});
  EXPECT_EQ(stream_.str(), "NAME  N\n");
}

TEST_F(OutputTest, CountsCharactersNotBytes) {
  output_.table({{"NAME"}, {"N"}}, {{"gr\xc3\xbc\xc3\x9f", "1"}, {"plain", "2"}});
  EXPECT_EQ(stream_.str(),
            "NAME   N\n"
            "gr\xc3\xbc\xc3\x9f   1\n"
            "plain  2\n");
}

TEST_F(OutputTest, KeepsGivenWidthsOfRowsThatComeOneByOne) {
  const Column columns[] = {{"A", Align::left, 3}, {"B", Align::right, 3}, {"C"}};
  output_.header(columns);
  output_.row(columns, {"1", "2", "3"});
  output_.row(columns, {"1234", "5678", "9"});
  EXPECT_EQ(stream_.str(),
            "A      B  C\n"
            "1      2  3\n"
            "1234  5678  9\n");
}

TEST_F(OutputTest, TellsWhenItCannotBeWritten) {
  output_.line("x");
  output_.flush();
  stream_.setstate(std::ios::badbit);
  EXPECT_THROW(output_.flush(), LocalError);
}

}  // namespace
}  // namespace cli
