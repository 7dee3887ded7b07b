#include "sheets/settings/HotkeyRows.h"

#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyRebinding.h"

#include <QClipboard>
#include <QGuiApplication>

#include <utility>

namespace quellora {
namespace {

std::optional<HotkeyAction> actionAt(int row)
{
    if (row < 0 || row >= int(hotkeyActions.size()))
        return std::nullopt;
    return hotkeyActions.at(std::size_t(row)).action;
}

} // namespace

HotkeyRows::HotkeyRows(HotkeyRebinding &rebinding, Vocabulary vocabulary, ShortcutGuide guide,
                       QObject *parent)
    : QAbstractListModel(parent)
    , m_rebinding(rebinding)
    , m_vocabulary(std::move(vocabulary))
    , m_guide(std::move(guide))
{
    // Do not reset the model, so that the view keeps its focus and scroll position.
    connect(&rebinding, &HotkeyRebinding::changed, this,
            [this] { Q_EMIT dataChanged(index(0), index(rowCount() - 1)); });
}

int HotkeyRows::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(hotkeyActions.size());
}

QVariant HotkeyRows::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const HotkeyAction action = *actionAt(index.row());
    const QString &combo = m_rebinding.hotkeysConfig()[action];
    const bool isCapturing = m_rebinding.capturingHotkeyAction() == action;
    const auto &conflict = m_rebinding.pendingSystemConflict();
    const auto &rollback = m_rebinding.hotkeyRollbackMessage();
    switch (role) {
    case Qt::DisplayRole:
    case TitleRole:
        return m_rebinding.title(action);
    case ComboRole:
        return HotkeyCombo::displayString(combo, m_vocabulary);
    case ChangedRole:
        return combo != m_rebinding.configFileHotkeys()[action];
    case CapturingRole:
        return isCapturing;
    case ErrorRole:
        if (isCapturing)
            return m_rebinding.hotkeyCaptureError().value_or(QString());
        return rollback && rollback->action == action ? rollback->message : QString();
    case ConflictRole:
        return isCapturing && conflict
                   ? QStringLiteral("This may conflict with ") + conflict->featureName
                   : QString();
    case ConflictComboRole:
        return isCapturing && conflict ? HotkeyCombo::displayString(conflict->combo, m_vocabulary)
                                       : QString();
    case CommandLineRole:
        return m_guide.line ? m_guide.line(combo, QLatin1StringView(hotkeyAction(action).command))
                            : QString();
    default:
        return {};
    }
}

QHash<int, QByteArray> HotkeyRows::roleNames() const
{
    return {{TitleRole, "title"},
            {ComboRole, "combo"},
            {ChangedRole, "isChanged"},
            {CapturingRole, "isCapturing"},
            {ErrorRole, "error"},
            {ConflictRole, "conflict"},
            {ConflictComboRole, "conflictCombo"},
            {CommandLineRole, "commandLine"}};
}

void HotkeyRows::beginCapture(int row)
{
    if (const auto action = actionAt(row))
        m_rebinding.beginCapturingHotkey(*action);
}

void HotkeyRows::cancelCapture()
{
    m_rebinding.cancelHotkeyCapture();
}

void HotkeyRows::confirmConflict()
{
    m_rebinding.confirmSystemConflict();
}

void HotkeyRows::cancelConflict()
{
    m_rebinding.cancelPendingSystemConflict();
}

void HotkeyRows::reset(int row)
{
    if (const auto action = actionAt(row))
        m_rebinding.resetHotkey(*action);
}

void HotkeyRows::resetAll()
{
    m_rebinding.resetAllHotkeys();
}

void HotkeyRows::copyCommandLine(int row)
{
    if (actionAt(row))
        QGuiApplication::clipboard()->setText(data(index(row), CommandLineRole).toString());
}

} // namespace quellora
