#include "catalogue/SavedEntries.h"

#include "catalogue/SavedItem.h"

#include <utility>

SavedEntries::SavedEntries(LinesByModule lines, const QSet<QString> &notListed)
    : linesByModule(std::move(lines)), reserved({ItemNames::modulesListName()})
{
    QMap<QString, QStringList> plainKeys;
    for (auto module = linesByModule.cbegin(); module != linesByModule.cend(); ++module) {
        if (notListed.contains(module.key())) {
            continue;
        }
        reserved << ItemNames::versionFileName(module.key()) << ItemNames::checksumFileName(module.key())
                 << ItemNames::migrationProgramName(module.key());
        for (const ChecksumLine &line : module.value()) {
            if (line.isPlainFile()) {
                plainKeys[module.key()] << line.key();
            } else if (const auto item = SavedItem::parse(module.key(), line)) {
                reserved << item->artefact();
            }
        }
    }
    plainFiles = ItemNames::PlainFileEntries(plainKeys, reserved);
}

ItemNames::EntryName SavedEntries::entry(const QString &module, const ChecksumLine &line) const
{
    if (line.isPlainFile()) {
        return plainFiles.entry(module, line.key());
    }
    const auto item = SavedItem::parse(module, line);
    return {{}, item ? item->artefact() : QString()};
}

QSet<QString> SavedEntries::names() const
{
    QSet<QString> names;
    for (auto module = linesByModule.cbegin(); module != linesByModule.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            names << entry(module.key(), line).text();
        }
    }
    return names;
}

bool SavedEntries::agreesWith(const SavedEntries &all) const
{
    for (auto module = linesByModule.cbegin(); module != linesByModule.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            if (entry(module.key(), line).text() != all.entry(module.key(), line).text()) {
                return false;
            }
        }
    }
    return true;
}
