#include "cli/output.h"

#include <gtest/gtest.h>

#include <sstream>

#include "cli/failure.h"

namespace cli {
namespace {

struct Thing {
  std::string name;
  std::int64_t count;
};
constexpr Field<Thing> fields[] = {
    {{"its_name"}, [](const Thing& of) { return nameValue(of.name); }},
    {{"count", Align::right}, [](const Thing& of) {
       return of.count < 0 ? nothing("none", "none") : numberValue(of.count);
     }}};
constexpr Kind<Thing> kind{"thing", "things", fields};

Table things(const std::vector<Thing>& all) { return tableOf(kind, all); }

// What an answer looks like in a format.
template <class Answer>
std::string in(Format format, Answer answer, bool colours = false) {
  std::ostringstream stream;
  Output output(stream, format, colours);
  answer(output);
  return stream.str();
}

// ---- Values ----

TEST(Value, ThatIsNotThereIsNullInJson) {
  for (const Value& value : {nothing("-", ""), nameOrNothing(""), etherTypeValue(0xffff),
                             subTypeValue(0xff), vlanValue(4095), macValue({0, nullptr})}) {
    EXPECT_TRUE(std::holds_alternative<std::monostate>(value.data)) << value.text;
  }
}

TEST(Value, OfNumbersIsANumberInJsonHoweverItIsShown) {
  const Value etherType = etherTypeValue(0x88cc);
  EXPECT_EQ(std::get<std::int64_t>(etherType.data), 0x88cc);
  EXPECT_EQ(etherType.text, "0x88cc");
  EXPECT_EQ(etherType.word, "0x88cc");
  const Value uptime = durationValue(90061);
  EXPECT_EQ(std::get<std::int64_t>(uptime.data), 90061);
  EXPECT_EQ(uptime.text, "1 d 01:01:01");
  EXPECT_EQ(uptime.word, "90061");
}

TEST(Value, OfABeginningIsATimeInUtcOfOneForm) {
  const Value beginning = sinceValue(1795310999);
  EXPECT_EQ(std::get<std::string>(beginning.data), "2026-11-22T01:29:59Z");
  EXPECT_EQ(beginning.text, "since 2026-11-22T01:29:59Z");
  EXPECT_EQ(beginning.word, "2026-11-22T01:29:59Z");
}

TEST(Value, OfSeveralNumbersIsAListForTheShell) {
  EXPECT_EQ(numbersValue({1, 20, 3}).text, "1, 20, 3");
  EXPECT_EQ(numbersValue({1, 20, 3}).word, "1 20 3");
  EXPECT_EQ(numbersValue({}).text, "-");
  EXPECT_EQ(numbersValue({}).word, "");
}

TEST(Value, OfAnUnknownRuleIsShownByItsNumber) {
  EXPECT_EQ(ruleValue(static_cast<rpc_l2cp_rule>(9)).text, "rule 9");
}

// ---- Lists ----

std::string listIn(Format format, const std::vector<Thing>& all, bool colours = false) {
  return in(
      format, [&](Output& output) { output.list(things(all)); }, colours);
}

TEST(ListForPeople, HasColumnsAsWideAsTheirWidestCell) {
  EXPECT_EQ(listIn(Format::table, {{"a", 1}, {"much longer", 100000}, {"x", -1}}),
            "ITS-NAME        COUNT\n"
            "a                   1\n"
            "\"much longer\"  100000\n"
            "x                none\n");
}

TEST(ListForPeople, HasTitlesAlsoWithoutRows) {
  EXPECT_EQ(listIn(Format::table, {}), "ITS-NAME  COUNT\n");
}

TEST(ListForPeople, HasNoBlanksAtTheEndsOfLines) {
  const Table table{"row", "rows", {{"a"}, {"b"}}, {{wordValue("x"), wordValue("")}}};
  EXPECT_EQ(in(Format::table, [&](Output& output) { output.list(table); }), "A  B\nx\n");
}

TEST(ListForPeople, CountsCharactersNotBytes) {
  EXPECT_EQ(listIn(Format::table, {{"gr\xc3\xbc\xc3\x9f ihr vielen", 1}, {"a", 2}}),
            "ITS-NAME           COUNT\n"
            "\"gr\xc3\xbc\xc3\x9f ihr vielen\"      1\n"
            "a                      2\n");
}

TEST(ListForPeople, IsColouredOnlyWhereThatIsWanted) {
  const Table table{
      "row",
      "rows",
      {{"rule"}, {"mac"}, {"plain"}},
      {{ruleValue(RPC_L2CP_RULE_DISCARD), wordValue("m", Style::yellow), wordValue("x")},
       {ruleValue(RPC_L2CP_RULE_PEER), wordValue("m"), wordValue("x")},
       {ruleValue(RPC_L2CP_RULE_TUNNEL), wordValue("m"), wordValue("x")}}};
  const auto answer = [&](Output& output) { output.list(table); };
  EXPECT_EQ(in(Format::table, answer, true),
            "\x1b[1mRULE\x1b[0m     \x1b[1mMAC\x1b[0m  \x1b[1mPLAIN\x1b[0m\n"
            "\x1b[31mdiscard\x1b[0m  \x1b[33mm\x1b[0m    x\n"
            "\x1b[36mpeer\x1b[0m     m    x\n"
            "\x1b[32mtunnel\x1b[0m   m    x\n");
  for (const Format format : {Format::oneLine, Format::json, Format::prettyJson}) {
    EXPECT_EQ(in(format, answer, true), in(format, answer, false));
  }
}

TEST(ListForTheShell, HasALineOfAssignmentsForEach) {
  EXPECT_EQ(listIn(Format::oneLine, {{"a", 1}, {"my net", -1}, {"x\ny", 0}}),
            "its_name=a count=1\n"
            "its_name='my net' count=none\n"
            "its_name=$'x\\012y' count=0\n");
  EXPECT_EQ(listIn(Format::oneLine, {}), "");
}

TEST(ListInJson, IsAnArrayOfAnyLength) {
  EXPECT_EQ(listIn(Format::json, {}), "[]\n");
  EXPECT_EQ(listIn(Format::prettyJson, {}), "[]\n");
  EXPECT_EQ(listIn(Format::json, {{"a", 1}}), "[{\"its_name\":\"a\",\"count\":1}]\n");
  EXPECT_EQ(listIn(Format::json, {{"a", 1}, {"b", -1}}),
            "[{\"its_name\":\"a\",\"count\":1},{\"its_name\":\"b\",\"count\":null}]\n");
  EXPECT_EQ(listIn(Format::prettyJson, {{"a", 1}}),
            "[\n"
            "  {\n"
            "    \"its_name\": \"a\",\n"
            "    \"count\": 1\n"
            "  }\n"
            "]\n");
}

TEST(ListInJson, IsPlainAscii) {
  EXPECT_EQ(listIn(Format::json, {{"\x1b\n\"\\\x7f\xc3\xbc\xe2\x80\xae\xff", 1}}),
            R"([{"its_name":"\u001b\n\"\\\u007f\u00fc\u202e\\xff","count":1}])"
            "\n");
}

// ---- Single things ----

std::string showIn(Format format, const std::vector<Thing>& parts) {
  return in(format, [&](Output& output) {
    const Table part = things(parts);
    output.show({"whole",
                 "wholes",
                 {{"id", Align::right}, {"is_on"}},
                 {{numberValue(7), truthValue(true)}}},
                {&part, 1});
  });
}

TEST(ThingForPeople, IsFollowedByWhatItHas) {
  EXPECT_EQ(showIn(Format::table, {{"a", 1}}),
            "id     7\n"
            "is-on  yes\n"
            "\n"
            "ITS-NAME  COUNT\n"
            "a             1\n");
}

TEST(ThingForTheShell, TellsTheKindOfEveryLineIfItHasParts) {
  EXPECT_EQ(showIn(Format::oneLine, {{"a", 1}, {"b", 2}}),
            "kind=whole id=7 is_on=yes\n"
            "kind=thing its_name=a count=1\n"
            "kind=thing its_name=b count=2\n");
  EXPECT_EQ(in(Format::oneLine,
               [](Output& output) {
                 output.show(things({{"a", 1}}));
               }),
            "its_name=a count=1\n");
}

TEST(ThingInJson, HasAnArrayForEachPart) {
  EXPECT_EQ(showIn(Format::json, {}), "{\"id\":7,\"is_on\":true,\"things\":[]}\n");
  EXPECT_EQ(showIn(Format::json, {{"a", 1}}),
            "{\"id\":7,\"is_on\":true,\"things\":[{\"its_name\":\"a\",\"count\":1}]}\n");
}

// ---- Lines ----

TEST(Lines, AreShownInEveryFormat) {
  const auto answer = [](Output& output) {
    output.lines(std::vector<std::string>{"", " it's \x1b"});
  };
  EXPECT_EQ(in(Format::table, answer), "\n it's \\x1b\n");
  EXPECT_EQ(in(Format::oneLine, answer), "line=''\nline=$' it\\'s \\033'\n");
  EXPECT_EQ(in(Format::json, answer), R"({"lines":[""," it's \u001b"]})"
                                      "\n");
  EXPECT_EQ(in(Format::json, [](Output& output) { output.lines({}); }), "{\"lines\":[]}\n");
}

// ---- Things that come one by one ----

std::string streamIn(Format format, const std::vector<Thing>& all) {
  return in(format, [&](Output& output) {
    Table table{"thing", "things", {{"its_name", Align::left, 3}, {"count", Align::right, 3}}, {}};
    output.begin(table);
    for (const Thing& thing : all) output.row(table, rowOf(kind, thing));
    output.end({"sum", "sums", {{"total"}}, {{numberValue(3)}}});
  });
}

TEST(Stream, KeepsGivenWidths) {
  EXPECT_EQ(streamIn(Format::table, {{"a", 1}, {"longer than that", 100000}}),
            "ITS-NAME  COUNT\n"
            "a             1\n"
            "\"longer than that\"  100000\n"
            "\n"
            "total  3\n");
}

TEST(Stream, TellsTheKindOfEveryLineToTheShell) {
  EXPECT_EQ(streamIn(Format::oneLine, {{"a", 1}}),
            "kind=thing its_name=a count=1\n"
            "kind=sum total=3\n");
}

TEST(Stream, IsOneObjectInJson) {
  EXPECT_EQ(streamIn(Format::json, {}), "{\"things\":[],\"sum\":{\"total\":3}}\n");
  EXPECT_EQ(streamIn(Format::json, {{"a", 1}, {"b", 2}}),
            "{\"things\":[{\"its_name\":\"a\",\"count\":1},{\"its_name\":\"b\",\"count\":2}],"
            "\"sum\":{\"total\":3}}\n");
}

TEST(Stream, IsIndentedAsIfItWereWrittenAtOnce) {
  EXPECT_EQ(streamIn(Format::prettyJson, {}),
            "{\n"
            "  \"things\": [],\n"
            "  \"sum\": {\n"
            "    \"total\": 3\n"
            "  }\n"
            "}\n");
  EXPECT_EQ(streamIn(Format::prettyJson, {{"a", 1}, {"b", 2}}),
            "{\n"
            "  \"things\": [\n"
            "    {\n"
            "      \"its_name\": \"a\",\n"
            "      \"count\": 1\n"
            "    },\n"
            "    {\n"
            "      \"its_name\": \"b\",\n"
            "      \"count\": 2\n"
            "    }\n"
            "  ],\n"
            "  \"sum\": {\n"
            "    \"total\": 3\n"
            "  }\n"
            "}\n");
}

TEST(Writing, TellsWhenItCannotBeDone) {
  std::ostringstream stream;
  Output output(stream, Format::table, false);
  output.line("x");
  output.flush();
  stream.setstate(std::ios::badbit);
  EXPECT_THROW(output.flush(), LocalError);
}

TEST(Writing, IsBesideProgressOnlyWhereAnswersTellLess) {
  std::ostringstream stream;
  const auto hasNotes = [&](Sink sink) {
    return Output(stream, Format::table, false, sink).notesBesideAnswers() != nullptr;
  };
  EXPECT_TRUE(hasNotes(Sink::file));
  EXPECT_FALSE(hasNotes(Sink::terminal));
  EXPECT_FALSE(hasNotes(Sink::plainTerminal));
}

// ---- Things one by one, with parts ----

std::string each(Format format, const std::vector<Thing>& all) {
  return in(format, [&all](Output& output) {
    output.beginEach();
    for (const Thing& thing : all) {
      const Table parts[] = {things({{"of " + thing.name, 2}})};
      output.each(things({thing}), parts);
    }
    output.endEach();
  });
}

TEST(Each, IsARecordWithTablesForPeople) {
  EXPECT_EQ(each(Format::table, {}), "");
  EXPECT_EQ(each(Format::table, {{"a", 1}, {"b", -1}}),
            "its-name  a\n"
            "count     1\n"
            "\n"
            "ITS-NAME  COUNT\n"
            "\"of a\"        2\n"
            "\n"
            "its-name  b\n"
            "count     none\n"
            "\n"
            "ITS-NAME  COUNT\n"
            "\"of b\"        2\n");
}

TEST(Each, IsLinesWithTheirKindForTheShell) {
  EXPECT_EQ(each(Format::oneLine, {}), "");
  EXPECT_EQ(each(Format::oneLine, {{"a", 1}, {"b", -1}}),
            "kind=thing its_name=a count=1\n"
            "kind=thing its_name='of a' count=2\n"
            "kind=thing its_name=b count=none\n"
            "kind=thing its_name='of b' count=2\n");
}

TEST(Each, IsAnArrayInJsonHoweverManyThereAre) {
  EXPECT_EQ(each(Format::json, {}), "[]\n");
  EXPECT_EQ(each(Format::json, {{"a", 1}}),
            R"([{"its_name":"a","count":1,"things":[{"its_name":"of a","count":2}]}])"
            "\n");
  EXPECT_EQ(each(Format::prettyJson, {}), "[]\n");
  EXPECT_EQ(each(Format::prettyJson, {{"a", 1}, {"b", -1}}),
            "[\n"
            "  {\n"
            "    \"its_name\": \"a\",\n"
            "    \"count\": 1,\n"
            "    \"things\": [\n"
            "      {\n"
            "        \"its_name\": \"of a\",\n"
            "        \"count\": 2\n"
            "      }\n"
            "    ]\n"
            "  },\n"
            "  {\n"
            "    \"its_name\": \"b\",\n"
            "    \"count\": null,\n"
            "    \"things\": [\n"
            "      {\n"
            "        \"its_name\": \"of b\",\n"
            "        \"count\": 2\n"
            "      }\n"
            "    ]\n"
            "  }\n"
            "]\n");
}

TEST(Value, OfAFractionIsRoundedToHundredths) {
  EXPECT_EQ(std::get<double>(fractionValue(1.0 / 3).data), 0.33);
  EXPECT_EQ(fractionValue(1.0 / 3).text, "0.33");
  EXPECT_EQ(fractionValue(1e9).word, "1000000000.00");
}

}  // namespace
}  // namespace cli
