#include "sheets/settings/HotkeyRows.h"

#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyManager.h"
#include "hotkeys/HotkeyRebinding.h"

#include <QClipboard>
#include <QGuiApplication>

#include <utility>

namespace quellora {
namespace {

using Delivery = HotkeyManager::Delivery;

} // namespace

HotkeyRows::HotkeyRows(HotkeyRebinding &rebinding, Vocabulary vocabulary, ShortcutGuide guide,
                       QObject *parent)
    : QAbstractListModel(parent)
    , m_rebinding(rebinding)
    , m_vocabulary(std::move(vocabulary))
    , m_guide(std::move(guide))
    , m_ids(rebinding.manager().ids())
{
    // Do not reset the model, so that the view keeps its focus and scroll position.
    connect(&rebinding, &HotkeyRebinding::changed, this,
            [this] { Q_EMIT dataChanged(index(0), index(rowCount() - 1)); });
    connect(&rebinding.manager(), &HotkeyManager::deliveryChanged, this,
            &HotkeyRows::followDelivery);
    connect(&rebinding.manager(), &HotkeyManager::promptsChanged, this, &HotkeyRows::followPrompts);
}

std::optional<HotkeyId> HotkeyRows::actionAt(int row) const
{
    return row < 0 || row >= rowCount() ? std::nullopt : std::optional(m_ids.at(row));
}

void HotkeyRows::followPrompts()
{
    const QList<HotkeyId> ids = m_rebinding.manager().ids();
    if (ids == m_ids) {
        Q_EMIT dataChanged(index(0), index(rowCount() - 1));
        return;
    }
    beginResetModel();
    m_ids = ids;
    endResetModel();
}

void HotkeyRows::followDelivery()
{
    if (!isRecordable())
        m_rebinding.cancelHotkeyCapture();
    Q_EMIT dataChanged(index(0), index(rowCount() - 1));
    Q_EMIT deliveryChanged();
}

bool HotkeyRows::isListed() const
{
    return m_rebinding.manager().delivery() != Delivery::None;
}

bool HotkeyRows::isRecordable() const
{
    const Delivery delivery = m_rebinding.manager().delivery();
    return delivery == Delivery::Own || delivery == Delivery::OwnPartly;
}

QString HotkeyRows::hint() const
{
    const HotkeyManager &manager = m_rebinding.manager();
    const QString record = QStringLiteral("Click any row to change its shortcut. New bindings save "
                                          "instantly — no restart needed.");
    switch (manager.delivery()) {
    case Delivery::Own:
        return record;
    case Delivery::OwnPartly:
        return manager.desktopReason() +
               QStringLiteral(" In this session these keys work only over some windows. ") + record;
    case Delivery::Desktop:
        return QStringLiteral("Your desktop assigns these keys. To change them, open ") +
               m_guide.assignedKeysPlace + u'.';
    case Delivery::None:
        return manager.desktopReason() +
               QStringLiteral(
                   " In this session only the desktop can bind keys: see Desktop shortcuts below.");
    }
    Q_UNREACHABLE();
}

QString HotkeyRows::commandHint() const
{
    if (m_guide.advice.isEmpty())
        return {};
    return m_rebinding.manager().delivery() == Delivery::Desktop
               ? QStringLiteral("Each action is also a command, for keys of your own. ") +
                     m_guide.advice
               : QStringLiteral("Keys bound in your desktop work over all windows. ") +
                     m_guide.advice;
}

int HotkeyRows::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_ids.size());
}

QVariant HotkeyRows::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const HotkeyId action = *actionAt(index.row());
    const QString &combo = m_rebinding.hotkeysConfig()[action];
    const bool isCapturing = m_rebinding.capturingHotkeyAction() == action;
    const auto &conflict = m_rebinding.pendingSystemConflict();
    const auto &rollback = m_rebinding.hotkeyRollbackMessage();
    const Delivery delivery = m_rebinding.manager().delivery();
    const QString key = delivery == Delivery::Desktop
                            ? m_rebinding.manager().desktopKey(action)
                            : HotkeyCombo::displayString(combo, m_vocabulary);
    switch (role) {
    case Qt::DisplayRole:
    case TitleRole:
        return m_rebinding.title(action);
    case ComboRole:
        return key;
    case KeyStateRole:
        switch (delivery) {
        case Delivery::Own:
            return key.isEmpty() ? QStringLiteral("not set") : key;
        case Delivery::OwnPartly:
            return key.isEmpty() ? QStringLiteral("not set")
                                 : key + QStringLiteral(", works over some windows");
        case Delivery::Desktop:
            return key.isEmpty() ? QStringLiteral("no key assigned")
                                 : key + QStringLiteral(", assigned by the desktop");
        case Delivery::None:
            return QStringLiteral("no key works");
        }
        Q_UNREACHABLE();
    case ChangedRole:
        return isRecordable() && combo != m_rebinding.configFileHotkeys()[action];
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
        // Prompts have no command.
        return m_guide.line && !action.isPrompt() ? m_guide.line(combo, action.command())
                                                  : QString();
    default:
        return {};
    }
}

QHash<int, QByteArray> HotkeyRows::roleNames() const
{
    return {{TitleRole, "title"},
            {ComboRole, "combo"},
            {KeyStateRole, "keyState"},
            {ChangedRole, "isChanged"},
            {CapturingRole, "isCapturing"},
            {ErrorRole, "error"},
            {ConflictRole, "conflict"},
            {ConflictComboRole, "conflictCombo"},
            {CommandLineRole, "commandLine"}};
}

void HotkeyRows::beginCapture(int row)
{
    const auto action = actionAt(row);
    if (action && isRecordable())
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

void HotkeyRows::unset(int row)
{
    const auto action = actionAt(row);
    if (action && isRecordable())
        m_rebinding.unsetHotkey(*action);
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
