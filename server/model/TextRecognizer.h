#pragma once

#include "base/Stop.h"

#include <tl/expected.hpp>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tesseract {
class TessBaseAPI;
}

namespace quellora::server {

/// One line of text on the screen.
struct ReadLine
{
    std::string text;
    /// Indentation in characters, relative to the leftmost line of its block.
    int indent = 0;
};

/// Adjacent lines, from top to bottom.
struct ReadBlock
{
    std::vector<ReadLine> lines;
    /// Left edge in characters from the picture's left edge.
    int column = 0;
};

/// The text recognised in a picture.
struct ReadPage
{
    int width = 0;
    int height = 0;
    std::vector<ReadBlock> blocks;
    /// Recognition ran out of time; later lines are missing.
    bool cutShort = false;
};

/// How text is recognised.
struct RecognizerSettings
{
    std::string languages = "eng";
    /// Directory of the language data; empty for the library's own.
    std::string dataDirectory;
    /// Recognition stops after this time and returns what it has.
    std::chrono::milliseconds budget = std::chrono::milliseconds(6000);
};

/// Why a picture could not be read.
enum class ReadError {
    /// Not a JPEG, damaged, or larger than any screen.
    BadPicture,
    /// The language data of the text recognition is not installed.
    NoLanguageData
};

/// Recognises the text of screenshots with Tesseract. Thread-safe; processes one picture at a
/// time. The language data is loaded with the first picture.
class TextRecognizer
{
public:
    explicit TextRecognizer(RecognizerSettings settings);
    ~TextRecognizer();

    /// Blocks until the text is recognised or a stop is requested.
    tl::expected<ReadPage, ReadError> read(const std::string &jpeg, const StopToken &stop);

private:
    bool load();

    RecognizerSettings m_settings;
    std::mutex m_mutex;
    std::unique_ptr<tesseract::TessBaseAPI> m_engine;
};

} // namespace quellora::server
