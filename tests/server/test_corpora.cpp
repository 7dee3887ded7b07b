#include "ServerKit.h"
#include "base/Text.h"
#include "model/ProviderWords.h"
#include "providers/UpstreamSettings.h"
#include "store/Connections.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace quellora::server {
namespace {

std::string contentOf(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path << " is missing: configure the build again";
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The cases of the JSON test suite by name: y_ is valid, n_ is not, i_ is left to the reader.
const std::map<std::string, std::string> &jsonCases()
{
    static const std::map<std::string, std::string> cases = [] {
        std::map<std::string, std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(CORPORA "/json"))
            found[entry.path().stem().string()] = contentOf(entry.path());
        return found;
    }();
    return cases;
}

std::vector<std::string> naughtyStrings()
{
    const auto list = nlohmann::json::parse(contentOf(CORPORA "/naughty-strings.json"));
    return list.get<std::vector<std::string>>();
}

/// What the standard leaves to the reader and the backend refuses: numbers too large for a double,
/// lone surrogates in escapes, and UTF-16.
const std::vector<std::string> refusedChoices = {"i_number_huge_exp",
                                                 "i_number_neg_int_huge_exp",
                                                 "i_number_pos_double_huge_exp",
                                                 "i_number_real_neg_overflow",
                                                 "i_number_real_pos_overflow",
                                                 "i_object_key_lone_2nd_surrogate",
                                                 "i_string_1st_surrogate_but_2nd_missing",
                                                 "i_string_1st_valid_surrogate_2nd_invalid",
                                                 "i_string_UTF-16LE_with_BOM",
                                                 "i_string_incomplete_surrogate_and_escape_valid",
                                                 "i_string_incomplete_surrogate_pair",
                                                 "i_string_incomplete_surrogates_escape_valid",
                                                 "i_string_invalid_lonely_surrogate",
                                                 "i_string_invalid_surrogate",
                                                 "i_string_inverted_surrogates_U+1D11E",
                                                 "i_string_lone_second_surrogate",
                                                 "i_string_utf16BE_no_BOM",
                                                 "i_string_utf16LE_no_BOM"};

bool isRefusedChoice(const std::string &name)
{
    return std::find(refusedChoices.begin(), refusedChoices.end(), name) != refusedChoices.end();
}

/// Whether a reader takes a case; the text is the whole document or a member's value.
void expectVerdicts(const std::function<bool(const std::string &text)> &takes, bool isWhole)
{
    ASSERT_EQ(jsonCases().size(), 318U);
    for (const auto &[name, text] : jsonCases()) {
        const bool isObject = trimmed(text).rfind('{', 0) == 0;
        bool isExpected = name.front() == 'y' || (name.front() == 'i' && !isRefusedChoice(name));
        // A byte order mark may only stand at the beginning.
        if (name == "i_structure_UTF-8_BOM_empty_object")
            isExpected = isWhole;
        else if (isWhole)
            isExpected = isExpected && isObject;
        EXPECT_EQ(takes(text), isExpected) << name;
    }
}

TEST(JsonSuite, DocumentsAreTakenAsTheStandardSays)
{
    expectVerdicts([](const std::string &text) { return parsedObject(text).has_value(); }, true);
}

TEST(JsonSuite, ValuesOfUnknownKeysAreTakenAsTheStandardSays)
{
    expectVerdicts(
        [](const std::string &text) {
            const auto record = parsedObject(R"({"prompt":"p","new":)" + text + "}");
            return record && textOf(*record, "prompt") == "p";
        },
        false);
}

TEST(JsonSuite, StoredConnections)
{
    const TemporaryDirectory directory;
    const std::filesystem::path path = directory.path() / "connections.json";
    expectVerdicts(
        [&](const std::string &text) {
            std::ofstream(path, std::ios::binary) << R"({"connections":[],"new":)" << text << "}";
            std::filesystem::permissions(path, std::filesystem::perms::owner_read |
                                                   std::filesystem::perms::owner_write);
            return ConnectionFile(path).load().has_value();
        },
        false);
}

TEST(NaughtyStrings, PromptsReachTheModelAndAnswersTheApp)
{
    const TemporaryDirectory directory;
    const ManualClock clock;
    std::string heard;
    Config config = testConfig(directory, "[limits]\nqueries_per_minute = 100000\n");
    const std::string standard = config.service.defaultPrompt;
    RunningServer server(
        std::move(config), clock,
        [&heard](const ModelRequest &request, const TextSink &sink, const StopToken &) {
            heard = request.prompt;
            sink(request.prompt);
            return completed(1, 1);
        });
    const std::string token = server.token();
    const auto strings = naughtyStrings();
    ASSERT_EQ(strings.size(), 485U);
    for (const std::string &text : strings) {
        const auto result = server.query(token, text);
        ASSERT_TRUE(result) << text;
        ASSERT_EQ(result->status, 200) << text;
        const std::string expected = trimmed(text).empty() ? standard : text;
        EXPECT_EQ(heard, expected);
        EXPECT_EQ(answerText(result->body), expected);
    }
}

/// Each is no address, or becomes an account that opens with its own password only.
TEST(NaughtyStrings, EmailsAndPasswords)
{
    const TemporaryDirectory directory;
    const ManualClock clock;
    SqliteDatabase database(directory.path() / "backend.sqlite");
    const PasswordHasher hasher(weakCost());
    Accounts accounts(database, hasher, clock);
    std::size_t count = 0;
    for (const std::string &text : naughtyStrings()) {
        for (const std::string &email : {text, text + "@example.org"}) {
            const auto stored = normalizedEmail(email);
            if (!stored)
                continue;
            const auto created = accounts.create(*stored, "pass " + text, "local", 0);
            const auto found = accounts.findByEmail(*stored);
            ASSERT_TRUE(found) << email;
            EXPECT_EQ(found->email, *stored);
            if (!created)
                continue;
            ++count;
            EXPECT_EQ(found->id, created->id);
            EXPECT_TRUE(accounts.authenticate(*stored, "pass " + text)) << email;
            EXPECT_FALSE(accounts.authenticate(*stored, "pass")) << email;
        }
    }
    EXPECT_EQ(accounts.all().size(), count);
    EXPECT_GT(count, 50U);
}

TEST(NaughtyStrings, ModelNamesAreOfferedOrLeftOut)
{
    const TemporaryDirectory directory;
    const ConnectionFile file(directory.path() / "connections.json");
    Connection connection{"openai", "Server", "http://127.0.0.1:1", "key", {}};
    nlohmann::json list = nlohmann::json::array();
    for (const std::string &text : naughtyStrings())
        list.push_back({{"id", text}, {"name", text}});
    const auto models = listedModels(compactJson({{"data", list}}), "name");
    ASSERT_TRUE(models);
    EXPECT_GT(models->size(), 300U);
    for (const OfferedModel &model : *models) {
        // A name that could not be shown as it is would be another model's to the reader.
        EXPECT_EQ(model.name, displayText(model.name, 200));
        if (connection.models.size() < 256)
            connection.models.push_back({model.name, model.title});
    }
    ASSERT_FALSE(file.save({connection}));
    const auto loaded = file.load();
    ASSERT_TRUE(loaded);
    ASSERT_EQ(loaded->size(), 1U);
    ASSERT_EQ(loaded->front().models.size(), connection.models.size());
    for (std::size_t i = 0; i < connection.models.size(); ++i)
        EXPECT_EQ(loaded->front().models[i].name, connection.models[i].name);
}

} // namespace
} // namespace quellora::server
