#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace quellora {

/// View model of the overlay's menu: available rows and the account's usage. Main thread only.
class HamburgerMenuModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(bool historyAvailable READ historyAvailable NOTIFY rowsChanged)
    Q_PROPERTY(bool settingsAvailable READ settingsAvailable NOTIFY rowsChanged)
    Q_PROPERTY(bool exportAvailable READ exportAvailable NOTIFY rowsChanged)
    Q_PROPERTY(bool isExportShown READ isExportShown NOTIFY pageChanged)
    Q_PROPERTY(QString exportTitle READ exportTitle NOTIFY pageChanged)
    Q_PROPERTY(bool answerAvailable READ answerAvailable NOTIFY pageChanged)
    Q_PROPERTY(bool connectAvailable READ connectAvailable NOTIFY rowsChanged)
    Q_PROPERTY(bool capturesAvailable READ capturesAvailable NOTIFY rowsChanged)
    Q_PROPERTY(Tier tier READ tier NOTIFY usageChanged)
    Q_PROPERTY(double fillFraction READ fillFraction NOTIFY usageChanged)
    Q_PROPERTY(QString usageText READ usageText NOTIFY usageChanged)
    Q_PROPERTY(QString caption READ caption NOTIFY usageChanged)

public:
    /// Colouring of the usage bar.
    enum class Tier { Normal, Amber, Danger, Exceeded };
    Q_ENUM(Tier)

    /// What can be done with a thread on the menu's second page.
    enum class ExportChoice { MarkdownFile, WebPage, Pdf, CopyMarkdown, CopyRichText, CopyAnswer };
    Q_ENUM(ExportChoice)

    static constexpr double amberThreshold = 80.0;
    static constexpr double dangerThreshold = 95.0;

    using QObject::QObject;

    /// A cap below 1 means that there is none.
    void setUsage(qint64 tokensUsed, qint64 tokenCap, bool capExceeded);
    void setHistoryAvailable(bool isAvailable);
    void setSettingsAvailable(bool isAvailable);
    /// Whether there is a thread on show to export or copy.
    void setExportAvailable(bool isAvailable);
    /// Shows the second page, with what can be done with a thread.
    /// @param hasAnswer its latest answer can be copied alone
    void showExport(const QString &threadTitle, bool hasAnswer);
    /// Shows the first page.
    void showMain();
    /// Whether the menu leads to connecting a model.
    void setConnectAvailable(bool isAvailable);
    /// The rows that capture a window or a region.
    void setCapturesAvailable(bool isAvailable);

    bool historyAvailable() const { return m_historyAvailable; }
    bool settingsAvailable() const { return m_settingsAvailable; }
    bool exportAvailable() const { return m_exportAvailable; }
    bool isExportShown() const { return m_isExportShown; }
    QString exportTitle() const { return m_exportTitle; }
    bool answerAvailable() const { return m_answerAvailable; }
    bool connectAvailable() const { return m_connectAvailable; }
    bool capturesAvailable() const { return m_capturesAvailable; }
    Tier tier() const;
    /// Filled fraction of the bar, 0 to 1; 1 if the cap is exceeded.
    double fillFraction() const;
    /// "4K of 10K credits" or "No limit set".
    QString usageText() const;
    /// Text below the bar; empty without a cap.
    QString caption() const;

Q_SIGNALS:
    void closeRequested();
    void historyRequested();
    /// The second page is wanted for the thread on show.
    void exportRequested();
    void exportChosen(quellora::HamburgerMenuModel::ExportChoice choice);
    void settingsRequested();
    void captureWindowRequested();
    void captureRegionRequested();
    void accountRequested();
    void connectRequested();
    void upgradeRequested();
    void signOutRequested();

    void usageChanged();
    void rowsChanged();
    void pageChanged();

private:
    bool hasCap() const { return m_tokenCap >= 1; }
    /// Usage in percent of the cap; 0 without a cap.
    double usagePercent() const;

    qint64 m_tokensUsed = 0;
    qint64 m_tokenCap = 0;
    bool m_capExceeded = false;
    bool m_historyAvailable = false;
    bool m_settingsAvailable = false;
    bool m_exportAvailable = false;
    bool m_isExportShown = false;
    QString m_exportTitle;
    bool m_answerAvailable = false;
    bool m_connectAvailable = false;
    bool m_capturesAvailable = false;
};

} // namespace quellora
