#include "QtFuzz.h"
#include "base/PromptPresets.h"
#include "base/UserDefaults.h"
#include "base/VantiroConfig.h"

#include <QFile>
#include <QTemporaryDir>

using namespace quellora;
using namespace quellora::fuzz;

/// The input as config.json and as the file of preferences. What the latter cannot read is kept.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    const QByteArray json = bytes(view(data, size));
    QString error;
    const auto config = VantiroConfig::decode(
        json, {{"capture", true}, {"toggle", true}, {"newer", false}}, &error);
    require(config.has_value() == error.isEmpty());

    static const QTemporaryDir folder;
    static const QString path = folder.filePath(QStringLiteral("defaults.json"));
    const QString kept = path + QStringLiteral(".damaged");
    QFile::remove(kept);
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(json) == json.size());
    file.close();
    JsonUserDefaults defaults(path);
    const PromptPresets presets(defaults);
    QFile damaged(kept);
    require(QFile::exists(path) != damaged.exists());
    if (damaged.exists())
        require(damaged.open(QIODevice::ReadOnly) && damaged.readAll() == json);
    for (const QString &key : defaults.values().keys()) {
        defaults.boolValue(key);
        defaults.stringValue(key);
        defaults.stringDictionary(key);
    }
    return 0;
}
