#include "platform/applications/StringTable.h"
#include "platform/archive/PropertyList.h"

#include <gtest/gtest.h>
#include <string>

using namespace tessel;

namespace {

using Table = Value::Dictionary;

std::optional<Table> parseText(std::string_view text, std::string* error = nullptr)
{
    return StringTable::parse(text.data(), text.size(), error);
}

TEST(StringTable, TextRules)
{
    // Name, text, the table it gives.
    const std::tuple<const char*, std::string, Table> cases[] = {
        { "empty", "", {} },
        { "quoted pair", R"("key" = "value";)", { { "key", "value" } } },
        { "no spaces", R"("a"="b";"c"="d";)", { { "a", "b" }, { "c", "d" } } },
        { "comments between tokens", "/*x*/\"a\"/*y*/=// z\n\"b\"/**/;", { { "a", "b" } } },
        { "comment markers inside strings", R"("/*a*/" = "//b";)", { { "/*a*/", "//b" } } },
        { "unquoted key and value", "simple_key.1 = value-2:$;", { { "simple_key.1", "value-2:$" } } },
        { "bare key is its own value", R"("same"; other;)", { { "same", "same" }, { "other", "other" } } },
        { "later entry wins", R"("k" = "1"; "k" = "2";)", { { "k", "2" } } },
        { "simple escapes", R"("k" = "q\" b\\ n\n t\t r\r s\'";)", { { "k", "q\" b\\ n\n t\t r\r s'" } } },
        { "unicode escapes", R"("k" = "\u00e9\U20AC";)", { { "k", "\xC3\xA9\xE2\x82\xAC" } } },
        { "surrogate pair", R"("k" = "\uD83D\uDE00";)", { { "k", "\xF0\x9F\x98\x80" } } },
        { "raw newline in string", "\"k\" = \"a\nb\";", { { "k", "a\nb" } } },
        { "raw UTF-8", "\"\xC3\xBC\" = \"\xE2\x82\xAC\";", { { "\xC3\xBC", "\xE2\x82\xAC" } } },
        { "UTF-8 byte order mark", "\xEF\xBB\xBF\"a\" = \"b\";", { { "a", "b" } } },
        { "empty strings", R"("" = "";)", { { "", "" } } },
        { "line comment at end without newline", "\"a\"=\"b\"; // end", { { "a", "b" } } },
    };
    for (const auto& [name, text, expected] : cases) {
        std::string error;
        auto table = parseText(text, &error);
        ASSERT_TRUE(table) << name << ": " << error;
        EXPECT_EQ(*table, expected) << name;
    }
}

TEST(StringTable, MalformedTextFailsWholeWithLine)
{
    // Name, text, what the error says.
    const std::tuple<const char*, std::string, const char*> cases[] = {
        { "missing semicolon", R"("a" = "b")", "expected ';'" },
        { "missing semicolon before next", "\"a\" = \"b\"\n\"c\" = \"d\";", "line 2: expected ';'" },
        { "missing value", R"("a" = ;)", "expected a value" },
        { "value at end", R"("a" =)", "expected a value at the end" },
        { "unterminated string", R"("a" = "b;)", "unterminated string" },
        { "unterminated comment", "\"a\" = \"b\"; /* open", "unterminated comment" },
        { "stray character", "\"a\" = \"b\";\n\n#", "line 3: expected a key" },
        { "unknown escape", R"("a" = "\q";)", "unknown escape" },
        { "short unicode escape", R"("a" = "\u12";)", "four hexadecimal digits" },
        { "lone high surrogate", R"("a" = "\uD83Dx";)", "unpaired surrogate" },
        { "high then non-low", R"("a" = "\uD83D\u0041";)", "unpaired surrogate" },
        { "lone low surrogate", R"("a" = "\uDE00";)", "unpaired surrogate" },
        { "escaped NUL", R"("a" = "\u0000";)", "NUL" },
        { "raw NUL", std::string("\"a\" = \"\0\";", 10), "NUL character at byte 7" },
        { "invalid UTF-8", "\"a\" = \"\xC3\";", "invalid UTF-8 at byte 7" },
        { "truncated at end", "\"a\" = \"\xE2\x82", "invalid UTF-8" },
        { "two equals", R"("a" = "b" = "c";)", "expected ';'" },
    };
    for (const auto& [name, text, expected] : cases) {
        std::string error;
        EXPECT_FALSE(parseText(text, &error)) << name;
        EXPECT_NE(error.find(expected), std::string::npos) << name << ": " << error;
    }
}

TEST(StringTable, UTF16WithByteOrderMark)
{
    auto encode = [](std::u16string_view text, bool bigEndian) {
        std::string bytes = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
        for (char16_t unit : text) {
            char high = static_cast<char>(unit >> 8), low = static_cast<char>(unit & 0xFF);
            bytes += bigEndian ? high : low;
            bytes += bigEndian ? low : high;
        }
        return bytes;
    };
    for (bool bigEndian : { false, true }) {
        auto table = parseText(encode(u"\"k\u00e9\" = \"\U0001F600\";", bigEndian));
        ASSERT_TRUE(table) << bigEndian;
        EXPECT_EQ(*table, (Table { { "k\xC3\xA9", "\xF0\x9F\x98\x80" } }));
    }
    std::string error;
    EXPECT_FALSE(parseText(encode(u"\"a\" = \"\xD83D\";", false), &error));
    EXPECT_NE(error.find("unpaired surrogate"), std::string::npos) << error;
    EXPECT_FALSE(parseText(std::string("\xFF\xFE\x22", 3), &error));
    EXPECT_NE(error.find("odd number"), std::string::npos) << error;
}

TEST(StringTable, ReadTakesPropertyListsOfStringsThenText)
{
    Table strings { { "greeting", "Hallo" }, { "farewell", "Tschüss" } };
    for (auto format : { PropertyList::Format::Xml, PropertyList::Format::Binary }) {
        auto bytes = PropertyList::data(Value(strings), format);
        ASSERT_TRUE(bytes);
        auto table = StringTable::read(*bytes);
        ASSERT_TRUE(table);
        EXPECT_EQ(*table, strings);
    }
    std::string text = "\n  \"a\" = \"b\";";
    auto fromText = StringTable::read(Bytes(text.begin(), text.end()));
    ASSERT_TRUE(fromText);
    EXPECT_EQ(*fromText, (Table { { "a", "b" } }));

    const std::pair<Value, const char*> bad[] = { { Value::Array { "a" }, "not a dictionary" },
        { Table { { "a", "b" }, { "n", 3 } }, "value of \"n\" is not a string" },
        { Table { { "d", Table {} } }, "value of \"d\"" } };
    for (const auto& [list, expected] : bad) {
        std::string error;
        EXPECT_FALSE(StringTable::read(*PropertyList::data(list, PropertyList::Format::Xml), &error));
        EXPECT_NE(error.find(expected), std::string::npos) << error;
    }
    std::string error;
    std::string broken = "<?xml version=\"1.0\"?><plist><dict><key>a</key>";
    EXPECT_FALSE(StringTable::read(Bytes(broken.begin(), broken.end()), &error));
    EXPECT_FALSE(error.empty());
}

TEST(StringTable, TextFormRoundTrips)
{
    Table strings { { "plain", "value" }, { "quote\"backslash\\", "new\nline\ttab\rreturn" },
        { "control\x01\x1F", "\xE2\x82\xAC \xF0\x9F\x98\x80" }, { "", "" },
        { "/* not a comment */", "// nor this" } };
    auto text = StringTable::text(strings);
    std::string error;
    auto table = parseText(text, &error);
    ASSERT_TRUE(table) << error << "\n" << text;
    EXPECT_EQ(*table, strings);

    // Values a table cannot hold are left out rather than written wrongly.
    EXPECT_EQ(StringTable::text(Table { { "n", 1 }, { "bad", std::string("a\0b", 3) } }), "");
}

TEST(StringTable, OversizedInputsAreRefused)
{
    std::string error;
    EXPECT_FALSE(StringTable::parse("", StringTable::maximumInputLength + 1, &error));
    EXPECT_NE(error.find("too long"), std::string::npos) << error;

    std::string many;
    for (int i = 0; i <= 100000; ++i)
        many += "k" + std::to_string(i) + ";";
    EXPECT_FALSE(parseText(many, &error));
    EXPECT_NE(error.find("too many entries"), std::string::npos) << error;
}

} // namespace
