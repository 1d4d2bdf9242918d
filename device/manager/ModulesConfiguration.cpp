#include "device/manager/ModulesConfiguration.h"

#include "device/common/PlainName.h"

#include <algorithm>
#include <optional>

namespace {

std::optional<ModuleDefinition> parseLine(const QString &line)
{
    const QStringList fields = line.split('\t');
    if (fields.size() != 4 || !isPlainName(fields.at(0))) {
        return std::nullopt;
    }
    QStringList command = fields.at(3).split(' ');
    const QString program = command.takeFirst();
    if (program.isEmpty()) {
        return std::nullopt;
    }
    return ModuleDefinition{fields.at(0), fields.at(1), fields.at(2), program, command};
}

} // namespace

QList<ModuleDefinition> parseModulesConfiguration(const QByteArray &content, QList<int> &rejectedLines)
{
    QList<ModuleDefinition> modules;
    const QStringList lines = QString::fromUtf8(content).split('\n');
    for (int index = 0; index < lines.size(); ++index) {
        const QString &line = lines.at(index);
        if (line.isEmpty() || line.startsWith('#')) {
            continue;
        }
        const std::optional<ModuleDefinition> module = parseLine(line);
        const bool usable = module && std::none_of(modules.cbegin(), modules.cend(), [&](const auto &known) {
                                return known.name == module->name;
                            });
        if (usable) {
            modules.append(*module);
        } else {
            rejectedLines.append(index + 1);
        }
    }
    return modules;
}
