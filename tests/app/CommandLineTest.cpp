// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/CommandLine.h"

#include "app/BundleInfo.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using orvane::BundleInfo;
using orvane::CommandLine;

namespace {

struct ParseCase {
    QStringList arguments;
    CommandLine::Request expected;
};

class CommandLineParse : public ::testing::TestWithParam<ParseCase> {};

TEST_P(CommandLineParse, UnderstandsTheArguments)
{
    EXPECT_EQ(CommandLine::parse(GetParam().arguments), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CommandLineParse,
    ::testing::Values(ParseCase{{}, CommandLine::Run{}}, ParseCase{{u"--at-login"_s}, CommandLine::Run{true}},
                      ParseCase{{u"--help"_s}, CommandLine::ShowHelp{}},
                      ParseCase{{u"upcoming"_s}, CommandLine::ListUpcoming{false}},
                      ParseCase{{u"upcoming"_s, u"--json"_s}, CommandLine::ListUpcoming{true}},
                      ParseCase{{u"upcoming"_s, u"--yaml"_s}, CommandLine::Invalid{u"\"upcoming\" takes only --json."_s}},
                      ParseCase{{u"test-alert"_s}, CommandLine::ShowTestAlert{}},
                      ParseCase{{u"test-alert"_s, u"now"_s},
                                CommandLine::Invalid{u"\"test-alert\" takes no arguments."_s}},
                      ParseCase{{u"-h"_s}, CommandLine::ShowHelp{}},
                      ParseCase{{u"--version"_s}, CommandLine::ShowVersion{}},
                      ParseCase{{u"-v"_s}, CommandLine::ShowVersion{}},
                      ParseCase{{u"--frobnicate"_s}, CommandLine::Invalid{u"Unknown option \"--frobnicate\"."_s}},
                      ParseCase{{u"launch"_s}, CommandLine::Invalid{u"Unknown command \"launch\"."_s}},
                      ParseCase{{u"--help"_s, u"--version"_s}, CommandLine::Invalid{u"Too many arguments."_s}}));

TEST(CommandLineText, VersionLineNamesVersionAndBuild)
{
    const BundleInfo bundle({{u"CFBundleShortVersionString"_s, u"1.2.3"_s}, {u"CFBundleVersion"_s, u"42"_s}});
    EXPECT_EQ(CommandLine::versionText(bundle), u"Orvane 1.2.3 (build 42)"_s);
    EXPECT_TRUE(CommandLine::helpText(bundle).startsWith(u"Usage: orvane"_s));
}

TEST(BundleInfo, EmptyOrUnknownValuesAreAbsent)
{
    const BundleInfo bundle({{u"OrvaneGoogleOAuthClientID"_s, u"  "_s}, {u"OrvaneSupportURL"_s, u"https://x.test"_s}});
    EXPECT_EQ(bundle.value(u"OrvaneGoogleOAuthClientID"), std::nullopt);
    EXPECT_EQ(bundle.value(u"OrvaneTermsURL"), std::nullopt);
    EXPECT_EQ(bundle.value(u"OrvaneSupportURL"), u"https://x.test"_s);
}

TEST(BundleInfo, CompiledValuesCarryTheProjectVersion)
{
    const auto bundle = BundleInfo::compiled();
    EXPECT_FALSE(bundle.shortVersion().isEmpty());
    EXPECT_FALSE(bundle.buildNumber().isEmpty());
}

} // namespace
