#pragma once

#include <QByteArray>
#include <QFuture>
#include <QObject>
#include <QPageLayout>
#include <QStringList>

#include <tl/expected.hpp>

#include <chrono>

namespace quellora {

/// Answers as inert HTML: no scripts, no handlers, nothing that is fetched.
struct RenderedAnswers
{
    /// One for each answer, in their order.
    QStringList html;
    /// Some are typeset formulas, which need the typesetter's fonts and rules.
    bool hasFormulas = false;
};

/// Shows answers in a page engine of its own, without a window, and keeps what comes out: HTML or
/// pages of paper. The same renderer and sanitizer as on the panel's page, the same refusal of
/// every request. The engine's process ends with each job. Main thread only; requires
/// prepareWebEngine().
class AnswerRenderer : public QObject
{
    Q_OBJECT

public:
    /// The value, or the reason of the failure in a few words.
    template <typename T>
    using Result = tl::expected<T, QString>;

    /// What the HTML is for.
    enum class Purpose {
        /// A document with our rules: elements have classes.
        Document,
        /// Pasting into other programs: styles are on the elements, formulas are their source.
        Pasting,
    };

    /// @param patience how long one job may take
    explicit AnswerRenderer(std::chrono::milliseconds patience = std::chrono::minutes(2),
                            QObject *parent = nullptr);

    QFuture<Result<RenderedAnswers>> render(const QStringList &markdown, Purpose purpose);
    /// A PDF file of an HTML document.
    QFuture<Result<QByteArray>> print(const QByteArray &document, const QPageLayout &layout);

private:
    std::chrono::milliseconds m_patience;
};

} // namespace quellora
