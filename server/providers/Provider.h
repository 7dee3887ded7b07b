#pragma once

#include "base/Environment.h"
#include "base/Stop.h"
#include "model/Answer.h"

#include <tl/expected.hpp>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

struct Config;
struct DocumentLimits;
struct TimingSettings;
struct UpstreamSettings;
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
    /// The host that gets the questions and pictures, as this server sees it.
    std::string destination = {};
    /// The ids of the models that answer, in this order, while this one cannot.
    std::vector<std::string> fallback = {};
};

/// A server that the account page offers to connect.
struct ConnectChoice
{
    /// Names it in forms.
    std::string id;
    std::string title;
    /// Empty when the owner is asked for it.
    std::string baseUrl = {};
    bool needsKey = false;
    /// Offered only while a model server answers at baseUrl, which is on this machine.
    bool isLocal = false;
};

/// A model in a provider's own list.
struct OfferedModel
{
    std::string name;
    std::string title;
};

/// How the account page connects models of a provider.
struct Connector
{
    std::vector<ConnectChoice> choices;
    /// Asks for the provider's list over a connection on @p loop. Blocks; the time limit is in @p
    /// stop and @p limits.
    std::function<tl::expected<std::vector<OfferedModel>, UpstreamProblem>(
        EventLoop &loop, const UpstreamSettings &settings, const DocumentLimits &limits,
        const StopToken &stop)>
        listModels;
    std::function<AnswerSource(const UpstreamSettings &settings, const TimingSettings &timing)>
        makeAnswer;
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
    /// The host that gets the questions and pictures.
    std::string destination = {};
    /// Printed by `check-config`; empty for no line.
    std::string summary = {};
    /// The environment variable that switches the provider on and a remark that follows it, for
    /// help texts. Empty when there is none.
    std::string setupVariable = {};
    std::string setupRemark = {};
    /// Creates what answers for its models.
    std::function<AnswerSource(const Config &config)> makeAnswer = {};
    /// How the account page connects it; absent when it cannot.
    std::optional<Connector> connector = {};
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
