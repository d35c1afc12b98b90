// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/BundleInfo.h"
#include "app/CommandLine.h"
#include "domain/Overloaded.h"

#include <QString>
#include <QStringList>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void print(FILE* stream, const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, std::size_t(bytes.size()), stream);
    if (!text.endsWith(u'\n')) {
        std::fputc('\n', stream);
    }
}

} // namespace

int main(int argc, char** argv)
{
    QStringList arguments;
    for (int index = 1; index < argc; ++index) {
        arguments.append(QString::fromLocal8Bit(argv[index]));
    }
    const auto bundle = orvane::BundleInfo::compiled();
    return std::visit(orvane::Overloaded{
                          [&](const orvane::CommandLine::ShowHelp&) {
                              print(stdout, orvane::CommandLine::helpText(bundle));
                              return 0;
                          },
                          [&](const orvane::CommandLine::ShowVersion&) {
                              print(stdout, orvane::CommandLine::versionText(bundle));
                              return 0;
                          },
                          [&](const orvane::CommandLine::Invalid& invalid) {
                              print(stderr, invalid.message + u"\n\n"_s + orvane::CommandLine::helpText(bundle));
                              return 2;
                          },
                      },
                      orvane::CommandLine::parse(arguments));
}
