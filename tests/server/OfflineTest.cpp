#include "ServerKit.h"

#include "model/OfflineAnswerer.h"

#include <leptonica/allheaders.h>

namespace quellora::server {
namespace {

/// A JPEG of the text in the library's own bitmap face, with quality 85.
std::string pictureOf(const std::string &text, bool lightOnDark = false)
{
    Pix *page = pixCreate(1280, 800, 8);
    pixSetAllArbitrary(page, 255);
    L_Bmf *face = bmfCreate(nullptr, 14);
    l_int32 overflow = 0;
    pixSetTextblock(page, face, text.c_str(), 0, 60, 80, 1100, 0, &overflow);
    if (lightOnDark)
        pixInvert(page, page);
    l_uint8 *bytes = nullptr;
    size_t size = 0;
    pixWriteMemJpeg(&bytes, &size, page, 85, 0);
    std::string jpeg(reinterpret_cast<const char *>(bytes), size);
    lept_free(bytes);
    bmfDestroy(&face);
    pixDestroy(&page);
    return jpeg;
}

ReadBlock block(std::initializer_list<ReadLine> lines, int column = 0)
{
    return ReadBlock{lines, column};
}

struct Answer
{
    AnswerOutcome outcome;
    std::vector<std::string> pieces;
    std::string text;
};

Answer ask(const ModelRequest &request, OfflineSettings settings = {})
{
    OfflineAnswerer answerer(std::move(settings));
    Answer answer;
    answer.outcome = answerer.answer(
        request,
        [&](std::string_view piece) {
            answer.pieces.emplace_back(piece);
            answer.text += piece;
            return true;
        },
        StopToken());
    return answer;
}

class OfflineReading : public testing::TestWithParam<bool>
{};

TEST_P(OfflineReading, ShowsTheTextOfTheScreenshot)
{
    const Answer answer =
        ask({"p",
             pictureOf("Quarterly revenue rose sharply\nThe forecast for October is cautious",
                       GetParam()),
             ""});
    EXPECT_EQ(answer.outcome.kind, AnswerOutcome::Kind::Complete);
    EXPECT_GE(answer.pieces.size(), 4U);
    EXPECT_NE(answer.text.find("No model is configured"), std::string::npos);
    EXPECT_NE(answer.text.find("ANTHROPIC_API_KEY"), std::string::npos);
    EXPECT_NE(answer.text.find("- Quarterly revenue rose sharply"), std::string::npos)
        << answer.text;
    EXPECT_NE(answer.text.find("October is cautious"), std::string::npos) << answer.text;
    EXPECT_NE(answer.text.find("1280 × 800"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Offline, OfflineReading, testing::Bool());

TEST(Offline, SaysWhenThereIsNoText)
{
    EXPECT_NE(ask({"p", pictureOf(""), ""}).text.find("no text could be read"), std::string::npos);
}

TEST(Offline, BadPicturesAreSaidToBeBad)
{
    const std::string whole = pictureOf("words");
    for (const std::string &jpeg : {std::string("\xFF\xD8\xFF\xE0zzzz"), whole.substr(0, 200)})
        EXPECT_NE(ask({"p", jpeg, ""}).text.find("could not be decoded"), std::string::npos);
}

TEST(Offline, PicturesLargerThanAnyScreenAreNotDecoded)
{
    // The header of a small picture, with the frame size raised to 65535 x 65535.
    std::string jpeg = pictureOf("words");
    const std::size_t frame = jpeg.find("\xFF\xC0");
    ASSERT_NE(frame, std::string::npos);
    jpeg.replace(frame + 5, 4, "\xFF\xFF\xFF\xFF");
    EXPECT_NE(ask({"p", jpeg, ""}).text.find("could not be decoded"), std::string::npos);
}

TEST(Offline, MissingLanguageDataIsSaid)
{
    OfflineSettings settings;
    settings.dataDirectory = "/nonexistent";
    const Answer answer = ask({"p", pictureOf("words"), ""}, settings);
    EXPECT_EQ(answer.outcome.kind, AnswerOutcome::Kind::Complete);
    EXPECT_NE(answer.text.find("tesseract-ocr-eng"), std::string::npos);
}

TEST(Offline, WithoutPictureTheQuestionIsNotAnsweredButAcknowledged)
{
    const Answer answer = ask({"Why?", "", ""});
    EXPECT_NE(answer.text.find("4 bytes"), std::string::npos);
    EXPECT_NE(answer.text.find("no model here"), std::string::npos);
}

TEST(Offline, ReadingIsCutShortByItsBudget)
{
    OfflineSettings settings;
    settings.budget = std::chrono::milliseconds(-1);
    TextRecognizer recognizer(settings);
    const auto page = recognizer.read(pictureOf("some words here"), StopToken());
    ASSERT_TRUE(page);
    EXPECT_TRUE(page->cutShort);
    EXPECT_TRUE(page->blocks.empty());
}

TEST(Offline, StopsWhenNobodyListens)
{
    OfflineAnswerer answerer{OfflineSettings{}};
    const AnswerOutcome outcome = answerer.answer(
        {"p", "", ""}, [](std::string_view) { return false; }, StopToken());
    EXPECT_EQ(outcome.kind, AnswerOutcome::Kind::Cancelled);
}

TEST(OfflineMarkdown, ProgramsAreFencedWithTheirIndentation)
{
    ReadPage page;
    page.blocks.push_back(block({{"def f(x):", 0}, {"return x", 4}}, 3));
    page.blocks.push_back(block({{"y = f(2)", 0}, {"print(y)", 0}}, 7));
    std::string text;
    for (const std::string &piece : offlineMarkdown(page))
        text += piece;
    EXPECT_NE(text.find("```\ndef f(x):\n    return x\n\n    y = f(2)\n    print(y)\n```\n"),
              std::string::npos)
        << text;
}

TEST(OfflineMarkdown, TextIsListedAndCannotActAsMarkup)
{
    ReadPage page;
    page.blocks.push_back(block({{"# <img src=x> [a](b) `c` *d*", 0}, {"Plain words here.", 0}}));
    std::string text;
    for (const std::string &piece : offlineMarkdown(page))
        text += piece;
    EXPECT_NE(text.find("- \\# \\<img src=x\\> \\[a\\](b) \\`c\\` \\*d\\*\n- Plain words here.\n"),
              std::string::npos)
        << text;
}

TEST(OfflineMarkdown, FencesAreLongerThanAnyInTheText)
{
    ReadPage page;
    page.blocks.push_back(block({{"x = 1;", 0}, {"```` y;", 0}}));
    std::string text;
    for (const std::string &piece : offlineMarkdown(page))
        text += piece;
    EXPECT_NE(text.find("`````\nx = 1;"), std::string::npos) << text;
}

TEST(OfflineMarkdown, ProseIsNotTakenForAProgram)
{
    EXPECT_FALSE(looksLikeCode(block({{"Example 1: nums = [2,7,11,15], target = 9. The output is "
                                       "[0,1] because nums[0] +",
                                       0},
                                      {"nums[1] equals 9, so we return [0, 1].", 0}})));
    EXPECT_TRUE(looksLikeCode(block({{"int main()", 0}, {"{", 0}, {"return 0;", 4}, {"}", 0}})));
    EXPECT_FALSE(looksLikeCode(block({{"x = 1", 0}})));
}

} // namespace
} // namespace quellora::server
