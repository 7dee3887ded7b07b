#include "overlay/FindModel.h"

#include "page/ResponseDisplay.h"

namespace quellora {

void FindModel::attach(ResponseDisplay &display)
{
    connect(this, &FindModel::findRequested, &display, &ResponseDisplay::find);
    connect(this, &FindModel::findInNextPageRequested, &display, &ResponseDisplay::findInNextPage);
    connect(this, &FindModel::nextRequested, &display, &ResponseDisplay::findNext);
    connect(this, &FindModel::previousRequested, &display, &ResponseDisplay::findPrevious);
    connect(this, &FindModel::ended, &display, &ResponseDisplay::endFind);
    connect(&display, &ResponseDisplay::findResultChanged, this, &FindModel::setResult);
}

void FindModel::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    m_isAnswered = false;
    Q_EMIT textChanged();
    if (m_isOpen)
        Q_EMIT findRequested(m_text);
}

QString FindModel::countText() const
{
    if (!m_isAnswered || m_text.trimmed().isEmpty())
        return {};
    if (m_total == 0)
        return QStringLiteral("No matches");
    return QStringLiteral("%1 of %2").arg(m_current).arg(m_total);
}

void FindModel::setResult(int current, int total)
{
    m_isAnswered = true;
    m_current = current;
    m_total = total;
    Q_EMIT resultChanged();
}

void FindModel::open()
{
    if (m_isOpen)
        return;
    m_isOpen = true;
    Q_EMIT isOpenChanged();
    Q_EMIT findRequested(m_text);
}

void FindModel::openAt(const QString &text, const QUuid &entry)
{
    m_text = text;
    m_isAnswered = false;
    m_isOpen = true;
    Q_EMIT textChanged();
    Q_EMIT resultChanged();
    Q_EMIT isOpenChanged();
    Q_EMIT findInNextPageRequested(text, entry);
}

void FindModel::close()
{
    if (!m_isOpen)
        return;
    m_isOpen = false;
    Q_EMIT ended();
    Q_EMIT isOpenChanged();
}

void FindModel::next()
{
    if (m_isOpen && hasMatches())
        Q_EMIT nextRequested();
}

void FindModel::previous()
{
    if (m_isOpen && hasMatches())
        Q_EMIT previousRequested();
}

} // namespace quellora
