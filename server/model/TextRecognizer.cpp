#include "model/TextRecognizer.h"

#include "base/Log.h"

#include <leptonica/allheaders.h>
#include <tesseract/baseapi.h>

#ifdef QUELLORA_HAVE_OPENMP
#include <omp.h>
#endif

#include <algorithm>
#include <cmath>
#include <optional>

namespace quellora::server {
namespace {

using Clock = std::chrono::steady_clock;

// Screenshots from the app are at most 1280 pixels wide; these limits reject hostile pictures.
constexpr int largestSide = 8192;
constexpr std::int64_t mostPixels = 16LL * 1024 * 1024;
/// Screen text is small. Enlarging to about this width took the share of words read from 0.82 to
/// 0.96 in 960-pixel pictures and from 0.95 to 0.98 in 1280-pixel ones, for a fifth more time;
/// beyond it, neighbouring columns are merged.
constexpr float readingWidth = 1920.0F;
constexpr float mostEnlargement = 2.0F;
constexpr int screenDpi = 96;
constexpr int darkBelow = 110;
constexpr int leastConfidence = 35;
constexpr int padding = 2;

/// Owns a Leptonica picture.
class Picture
{
public:
    explicit Picture(Pix *pix) : m_pix(pix) {}
    ~Picture() { pixDestroy(&m_pix); }
    Picture(Picture &&other) noexcept : m_pix(std::exchange(other.m_pix, nullptr)) {}
    Picture &operator=(Picture &&) = delete;
    Picture(const Picture &) = delete;
    Picture &operator=(const Picture &) = delete;
    Pix *get() const { return m_pix; }
    explicit operator bool() const { return m_pix != nullptr; }

private:
    Pix *m_pix;
};

/// Bounding box of one line, in pixels of the enlarged picture.
struct LineBox
{
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    bool startsBlock = false;
};

/// One recognised line with its position.
struct PlacedLine
{
    std::string text;
    int left = 0;
    double characterWidth = 0;
};

Picture decoded(const std::string &jpeg)
{
    const auto *bytes = reinterpret_cast<const l_uint8 *>(jpeg.data());
    l_int32 width = 0;
    l_int32 height = 0;
    if (jpeg.empty() ||
        readHeaderMemJpeg(bytes, jpeg.size(), &width, &height, nullptr, nullptr, nullptr) != 0)
        return Picture(nullptr);
    if (width < 1 || height < 1 || width > largestSide || height > largestSide ||
        std::int64_t{width} * height > mostPixels)
        return Picture(nullptr);
    const Picture colour(pixReadMemJpeg(bytes, jpeg.size(), 0, 1, nullptr, 0));
    return Picture(colour ? pixConvertTo8(colour.get(), 0) : nullptr);
}

/// Inverts dark regions, so that all text is dark on light. Tesseract's own inversion recognises
/// every light-on-dark line twice and misses dark windows beside light ones.
Picture withDarkText(const Picture &grey)
{
    const int width = pixGetWidth(grey.get());
    const int height = pixGetHeight(grey.get());
    if (width < 64 || height < 64)
        return Picture(pixClone(grey.get()));
    const Picture quarter(pixScaleGrayRankCascade(grey.get(), 2, 2, 0, 0));
    const Picture ground(quarter ? pixRankFilterGray(quarter.get(), 15, 15, 0.5F) : nullptr);
    const Picture dark(ground ? pixThresholdToBinary(ground.get(), darkBelow) : nullptr);
    const Picture mask(dark ? pixScaleToSize(dark.get(), width, height) : nullptr);
    const Picture inverted(mask ? pixInvert(nullptr, grey.get()) : nullptr);
    Picture result(pixCopy(nullptr, grey.get()));
    if (inverted && result)
        pixCombineMasked(result.get(), inverted.get(), mask.get());
    return result;
}

std::vector<LineBox> lineBoxes(tesseract::TessBaseAPI &engine)
{
    std::vector<LineBox> boxes;
    const std::unique_ptr<tesseract::PageIterator> iterator(engine.AnalyseLayout());
    if (!iterator)
        return boxes;
    do {
        LineBox box;
        box.startsBlock = iterator->IsAtBeginningOf(tesseract::RIL_BLOCK);
        if (iterator->BoundingBox(tesseract::RIL_TEXTLINE, padding, &box.left, &box.top, &box.right,
                                  &box.bottom) &&
            box.right > box.left && box.bottom > box.top)
            boxes.push_back(box);
    } while (iterator->Next(tesseract::RIL_TEXTLINE));
    return boxes;
}

std::size_t codePoints(const std::string &text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    }));
}

/// Rejects short punctuation, which icons and window borders are recognised as.
bool worthKeeping(const std::string &text)
{
    const auto readable = std::count_if(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || static_cast<unsigned char>(c) >= 0x80;
    });
    return readable > 0 || text.size() > 2 || text == "}" || text == "{" || text == "};" ||
           text == ")" || text == ");";
}

std::optional<PlacedLine> recognised(tesseract::TessBaseAPI &engine, const LineBox &box)
{
    engine.SetRectangle(box.left, box.top, box.right - box.left, box.bottom - box.top);
    const std::unique_ptr<char[]> raw(engine.GetUTF8Text());
    std::string text = raw ? raw.get() : "";
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    if (!worthKeeping(text) || engine.MeanTextConf() < leastConfidence)
        return std::nullopt;
    const double width = static_cast<double>(box.right - box.left) /
                         static_cast<double>(std::max<std::size_t>(codePoints(text), 1));
    return PlacedLine{text, box.left, width};
}

ReadBlock indented(const std::vector<PlacedLine> &lines)
{
    ReadBlock block;
    int leftmost = lines.front().left;
    std::vector<double> widths;
    for (const PlacedLine &line : lines) {
        leftmost = std::min(leftmost, line.left);
        if (line.text.size() > 5)
            widths.push_back(line.characterWidth);
    }
    std::sort(widths.begin(), widths.end());
    const double width = widths.empty() ? 0 : widths[widths.size() / 2];
    block.column = width > 0 ? static_cast<int>(std::lround(leftmost / width)) : 0;
    for (const PlacedLine &line : lines) {
        const int indent =
            width > 0 ? static_cast<int>(std::lround((line.left - leftmost) / width)) : 0;
        block.lines.push_back(ReadLine{line.text, std::clamp(indent, 0, 40)});
    }
    return block;
}

} // namespace

TextRecognizer::TextRecognizer(RecognizerSettings settings) : m_settings(std::move(settings))
{
    setMsgSeverity(L_SEVERITY_NONE);
}

TextRecognizer::~TextRecognizer() = default;

bool TextRecognizer::load()
{
    if (m_engine)
        return true;
    auto engine = std::make_unique<tesseract::TessBaseAPI>();
    const char *directory =
        m_settings.dataDirectory.empty() ? nullptr : m_settings.dataDirectory.c_str();
    if (engine->Init(directory, m_settings.languages.c_str(), tesseract::OEM_LSTM_ONLY) != 0) {
        Log::event("[TextRecognizer] ERROR: no language data for \"" + m_settings.languages + "\"");
        return false;
    }
    engine->SetVariable("debug_file", "/dev/null");
    engine->SetVariable("tessedit_do_invert", "0");
    m_engine = std::move(engine);
    return true;
}

tl::expected<ReadPage, ReadError> TextRecognizer::read(const std::string &jpeg,
                                                       const StopToken &stop)
{
    const std::lock_guard lock(m_mutex);
    const auto deadline = Clock::now() + m_settings.budget;
    const Picture grey = decoded(jpeg);
    if (!grey)
        return tl::make_unexpected(ReadError::BadPicture);
    if (!load())
        return tl::make_unexpected(ReadError::NoLanguageData);
#ifdef QUELLORA_HAVE_OPENMP
    // The library distributes each small matrix product over four threads, which makes it several
    // times slower.
    omp_set_max_active_levels(0);
#endif

    ReadPage page;
    page.width = pixGetWidth(grey.get());
    page.height = pixGetHeight(grey.get());
    const float scale =
        std::clamp(readingWidth / static_cast<float>(page.width), 1.0F, mostEnlargement);
    const Picture even = withDarkText(grey);
    const Picture picture(even ? pixScale(even.get(), scale, scale) : nullptr);
    if (!picture)
        return tl::make_unexpected(ReadError::BadPicture);

    m_engine->SetPageSegMode(tesseract::PSM_AUTO);
    m_engine->SetImage(picture.get());
    m_engine->SetSourceResolution(static_cast<int>(screenDpi * scale));
    const std::vector<LineBox> boxes = lineBoxes(*m_engine);
    m_engine->SetPageSegMode(tesseract::PSM_SINGLE_LINE);
    std::vector<PlacedLine> lines;
    const auto closeBlock = [&] {
        if (!lines.empty())
            page.blocks.push_back(indented(lines));
        lines.clear();
    };
    for (const LineBox &box : boxes) {
        if (stop.stopRequested() || Clock::now() > deadline) {
            page.cutShort = true;
            break;
        }
        if (box.startsBlock)
            closeBlock();
        if (auto line = recognised(*m_engine, box))
            lines.push_back(std::move(*line));
    }
    closeBlock();
    m_engine->Clear();
    return page;
}

} // namespace quellora::server
