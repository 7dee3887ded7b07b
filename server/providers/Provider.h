#pragma once

#include "base/Environment.h"
#include "model/Answer.h"

#include <functional>
#include <string>
#include <vector>

namespace quellora::server {

struct Config;
class TomlReader;

/// One model of the app's picker and the provider that answers for it.
struct ModelSettings
{
    std::string id;
    std::string displayName;
    std::string descriptor;
    /// The provider's name for the model; the id when empty.
    std::string upstream = {};
    /// Name of the provider.
    std::string provider = {};
};

/// A provider after its configuration has been read.
struct ConfiguredProvider
{
    std::string name = {};
    /// The settings it cannot work without, as error messages name them; empty when none is
    /// missing.
    std::string missing = {};
    /// The models offered when the configuration lists none.
    std::vector<ModelSettings> models = {};
    /// Whether `models` are also offered beside models of other providers.
    bool offersAdditionally = false;
    /// Whether the models of all other providers are ignored.
    bool isExclusive = false;
    /// Printed by `check-config`; empty for no line.
    std::string summary = {};
    /// The environment variable that switches the provider on and a remark that follows it, for
    /// help texts. Empty when there is none.
    std::string setupVariable = {};
    std::string setupRemark = {};
    /// Creates the function that answers for its models, once per server.
    std::function<AnswerFunction(const Config &config)> makeAnswer = {};
};

/// Something that answers questions. All knowledge of one provider is in its own source file;
/// server/CMakeLists.txt lists the providers.
struct Provider
{
    /// The name of its table in the configuration file and the value of `provider` in [[models]].
    std::string name;
    /// Reads and validates the table and the environment. Reports problems with table.fail().
    std::function<ConfiguredProvider(TomlReader &table, const Environment &environment)> configure;
};

/// All providers, in the order in which they offer their models. The last one works without any
/// configuration.
const std::vector<Provider> &builtInProviders();

} // namespace quellora::server
