#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

#include <algorithm>
#include <cmath>

namespace quellora {

/// Computes the heights of the bottom panels, in points. The rows above the prompt box scroll
/// rather than reduce the answer below its minimum height. Rows with text are higher with larger
/// text; the heights named below are those at the normal text size.
class BottomPanelsLayout : public QObject
{
    Q_OBJECT
    QML_ELEMENT

    Q_PROPERTY(bool compact MEMBER m_compact NOTIFY changed)
    /// Factor of the text size.
    Q_PROPERTY(double textScale MEMBER m_textScale NOTIFY changed)
    Q_PROPERTY(double availableHeight MEMBER m_availableHeight NOTIFY changed)
    Q_PROPERTY(bool hasCard MEMBER m_hasCard NOTIFY changed)
    Q_PROPERTY(bool isCardCollapsed MEMBER m_isCardCollapsed NOTIFY changed)
    Q_PROPERTY(double cardBodyHeight MEMBER m_cardBodyHeight NOTIFY changed)
    Q_PROPERTY(bool hasFirstLaunchCard MEMBER m_hasFirstLaunchCard NOTIFY changed)
    Q_PROPERTY(double firstLaunchCardHeight MEMBER m_firstLaunchCardHeight NOTIFY changed)
    Q_PROPERTY(bool hasAttachment MEMBER m_hasAttachment NOTIFY changed)
    Q_PROPERTY(bool isEditing MEMBER m_isEditing NOTIFY changed)
    Q_PROPERTY(bool isModelListOpen MEMBER m_isModelListOpen NOTIFY changed)
    Q_PROPERTY(int modelCount MEMBER m_modelCount NOTIFY changed)
    Q_PROPERTY(double promptTextHeight MEMBER m_promptTextHeight NOTIFY changed)

    Q_PROPERTY(double modelRowHeight READ modelRowHeight NOTIFY changed)
    Q_PROPERTY(double pad READ pad NOTIFY changed)
    Q_PROPERTY(double gap READ gap NOTIFY changed)
    Q_PROPERTY(double promptHeight READ promptHeight NOTIFY changed)
    Q_PROPERTY(double controlsHeight READ controlsHeight NOTIFY changed)
    Q_PROPERTY(double cardHeaderHeight READ cardHeaderHeight NOTIFY changed)
    Q_PROPERTY(double cardHeight READ cardHeight NOTIFY changed)
    Q_PROPERTY(double attachmentHeight READ attachmentHeight NOTIFY changed)
    Q_PROPERTY(double editingHeight READ editingHeight NOTIFY changed)
    Q_PROPERTY(double modelListHeight READ modelListHeight NOTIFY changed)
    Q_PROPERTY(bool areCardsShown READ areCardsShown NOTIFY changed)
    Q_PROPERTY(double upperContentHeight READ upperContentHeight NOTIFY changed)
    Q_PROPERTY(double upperHeight READ upperHeight NOTIFY changed)
    Q_PROPERTY(double totalHeight READ totalHeight NOTIFY changed)

public:
    using QObject::QObject;

    static constexpr double minimumAnswerHeight = 48;
    static constexpr double normalLineHeight = 20;
    static constexpr int maximumModelRows = 5;

    double modelRowHeight() const { return 36 + growth(normalLineHeight); }
    double pad() const { return m_compact ? 6 : 8; }
    double gap() const { return m_compact ? 6 : 8; }
    /// 88 for up to two lines of text, growing to 148 for five; always 64 if compact.
    double promptHeight() const;
    /// Height of the thread controls' row; 0 if compact, where they are part of the prompt box.
    double controlsHeight() const { return m_compact ? 0 : 28 + growth(16); }
    double cardHeaderHeight() const { return (m_compact ? 32 : 36) + growth(normalLineHeight); }
    /// Height of the service card including its header; its body scrolls if it does not fit.
    double cardHeight() const;
    double attachmentHeight() const;
    /// Height of the row that says that the last question is edited; one line.
    double editingHeight() const { return 20 + growth(16) + 16; }
    double modelListHeight() const;
    /// False while an open model list needs the space of the other rows.
    bool areCardsShown() const;
    /// Height of all rows above the prompt box, including the gap after each row.
    double upperContentHeight() const;
    /// Visible part of upperContentHeight(); the rest scrolls.
    double upperHeight() const;
    double totalHeight() const;

Q_SIGNALS:
    void changed();

private:
    /// Height of a line of text that has @p line points at the normal text size.
    double scaled(double line) const { return std::round(line * m_textScale); }
    /// The room that such a line needs in addition; 0 for reduced text.
    double growth(double line) const { return std::max(scaled(line) - line, 0.0); }
    double compactCardBodyHeight() const;
    double fixedHeight() const;
    double maximumUpperHeight() const;
    double naturalCardHeight() const;
    double naturalModelListHeight() const;
    double otherRowsHeight() const;
    double row(double height) const { return height > 0 ? height + gap() : 0; }

    bool m_compact = false;
    double m_textScale = 1;
    double m_availableHeight = 0;
    bool m_hasCard = false;
    bool m_isCardCollapsed = false;
    double m_cardBodyHeight = 0;
    bool m_hasFirstLaunchCard = false;
    double m_firstLaunchCardHeight = 0;
    bool m_hasAttachment = false;
    bool m_isEditing = false;
    bool m_isModelListOpen = false;
    int m_modelCount = 0;
    double m_promptTextHeight = normalLineHeight;
};

} // namespace quellora
