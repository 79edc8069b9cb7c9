#include "platform/linux/DesktopEntry.h"

#include <gtest/gtest.h>

using namespace tessel;

namespace {

TEST(DesktopEntry, KeepsNamesIconAndTesselKeys)
{
    auto entry = DesktopEntry::parse("# comment\n"
                                     "[Desktop Entry]\r\n"
                                     "Type=Application\n"
                                     "Name=Mail\n"
                                     "Name[de]=Post\n"
                                     "Name[de_CH.UTF-8]=Pöstli\n"
                                     "Name[sr@latin]=Pošta\n"
                                     "Icon = mail\\sicon\n"
                                     "X-Tessel-Entitlements=push;loc\\;ation;;\n"
                                     "X-Tessel-VYAppUsesLocalNotifications=true\n"
                                     "X-Tessel-Count=-12\n"
                                     "X-Tessel-Text=a\\nb\\tc\\\\d\\qe 5\n"
                                     "X-Tessel-Text[de]=localized keys are not info\n"
                                     "[Desktop Action New]\n"
                                     "Name=New\n"
                                     "X-Tessel-Other=1\n");
    ASSERT_TRUE(entry);
    EXPECT_TRUE(entry->isApplication());
    EXPECT_EQ(entry->iconName(), "mail icon");
    EXPECT_EQ(entry->entitlements(), (Value::Dictionary { { "push", true }, { "loc;ation", true } }));
    EXPECT_EQ(entry->info(),
        (Value::Dictionary {
            { "VYAppUsesLocalNotifications", true }, { "Count", -12 }, { "Text", "a\nb\tc\\d\\qe 5" } }));
    const std::pair<std::vector<std::string>, const char*> names[] = {
        { { "de-CH" }, "Pöstli" },
        { { "de-AT" }, "Post" },
        { { "fr", "de" }, "Post" },
        { { "sr-RS@latin" }, "Pošta" },
        { { "sr", "en" }, "Mail" },
    };
    for (const auto& [localizations, name] : names)
        EXPECT_EQ(entry->localizedName(localizations), name) << localizations.front();
}

TEST(DesktopEntry, RefusesMalformedFilesAndSkipsNonApplications)
{
    enum Outcome { Application, NotApplication, Refused };
    const std::string valid = "[Desktop Entry]\nType=Application\nName=A\n";
    std::string huge = valid;
    while (huge.size() <= DesktopEntry::maximumFileLength)
        huge += "# " + std::string(100, 'x') + "\n";
    const std::pair<std::string, Outcome> cases[] = {
        { valid + "NoDisplay=true\n", Application },
        { valid + "Hidden=true\n", NotApplication },
        { "[Desktop Entry]\nType=Link\nName=A\n", NotApplication },
        { "Name=A\n" + valid, Refused },
        { valid + "garbage\n", Refused },
        { valid + "Bad Key=1\n", Refused },
        { valid + "Name[=x\n", Refused },
        { valid + "Name[d e]=x\n", Refused },
        { valid + "[Broken\n", Refused },
        { valid + "[]\n", Refused },
        { valid + "[Desktop Entry]\n", Refused },
        { "[Other]\nType=Application\n", Refused },
        { valid + "X-Tessel-Long=" + std::string(DesktopEntry::maximumLineLength, 'a') + "\n", Refused },
        { huge, Refused },
        { valid + "Name=\xff\n", Refused },
        { valid + std::string("Name=\0\n", 7), Refused },
        { "", Refused },
    };
    for (const auto& [text, outcome] : cases) {
        std::string error;
        auto entry = DesktopEntry::parse(text, &error);
        EXPECT_EQ(entry ? (entry->isApplication() ? Application : NotApplication) : Refused, outcome)
            << text.substr(0, 80);
        EXPECT_EQ(error.empty(), entry.has_value()) << text.substr(0, 80);
    }
}

TEST(DesktopEntry, DesktopFileIds)
{
    const std::pair<const char*, const char*> cases[] = {
        { "org.example.Mail.desktop", "org.example.Mail" },
        { "kde/org.example.Mail.desktop", "kde-org.example.Mail" },
        { "mail.desktop.bak", "" },
        { "kde/.desktop", "" },
    };
    for (const auto& [path, id] : cases)
        EXPECT_EQ(DesktopEntry::desktopFileId(path), id) << path;
}

} // namespace
