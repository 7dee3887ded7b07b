#pragma once

#include <QObject>
#include <QString>
#include <QUuid>
#include <QtQml/qqmlregistration.h>

namespace quellora {

class ResponseDisplay;

/// State of the find bar, which looks for a text in the thread on show. Main thread only.
class FindModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(bool isOpen READ isOpen NOTIFY isOpenChanged)
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    Q_PROPERTY(QString countText READ countText NOTIFY resultChanged)
    Q_PROPERTY(bool hasMatches READ hasMatches NOTIFY resultChanged)
public:
    explicit FindModel(QObject *parent = nullptr) : QObject(parent) {}

    /// Connects the bar with the page. Call once.
    /// @param display must outlive the model
    void attach(ResponseDisplay &display);

    bool isOpen() const { return m_isOpen; }
    QString text() const { return m_text; }
    /// Searches while the bar is open.
    void setText(const QString &text);
    /// "3 of 12", "No matches", or nothing while there is no text.
    QString countText() const;
    bool hasMatches() const { return m_total > 0; }
    /// Sets the page's answer.
    void setResult(int current, int total);

    /// Opens the bar with the text searched last; no effect while it is open.
    Q_INVOKABLE void open();
    Q_INVOKABLE void close();
    /// Opens the bar with a text whose occurrence in an entry of the thread is to be shown as soon
    /// as the page that is being loaded is there.
    void openAt(const QString &text, const QUuid &entry);
    /// No effect without matches.
    Q_INVOKABLE void next();
    Q_INVOKABLE void previous();

Q_SIGNALS:
    void isOpenChanged();
    void textChanged();
    void resultChanged();

    // Requests to the page.
    void findRequested(const QString &text);
    void findInNextPageRequested(const QString &text, const QUuid &entry);
    void nextRequested();
    void previousRequested();
    void ended();

private:
    bool m_isOpen = false;
    /// Whether the page has answered for the text.
    bool m_isAnswered = false;
    QString m_text;
    int m_current = 0;
    int m_total = 0;
};

} // namespace quellora
