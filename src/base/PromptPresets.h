#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <optional>

namespace quellora {

class UserDefaults;

/// A named prompt that the user keeps at hand.
struct PromptPreset
{
    /// Names it for good, also in the stored hot keys: lower-case letters, digits and dashes.
    QString id;
    /// One line.
    QString name;
    QString text;

    bool operator==(const PromptPreset &) const = default;
};

/// The user's prompts in their order, over UserDefaults; three built-in ones until the user changes
/// the list. Every change is stored at once and announced, also one made in the store directly.
/// Main thread only.
///
/// What is stored is not trusted: entries that are no prompts, repeat an id or exceed a limit are
/// left out; a value that is no list counts as none.
class PromptPresets : public QObject
{
    Q_OBJECT
public:
    static constexpr qsizetype maximumCount = 30;
    static constexpr qsizetype maximumNameLength = 40;
    static constexpr qsizetype maximumTextLength = 4000;

    /// @param defaults must outlive this object
    explicit PromptPresets(UserDefaults &defaults, QObject *parent = nullptr);

    static const QList<PromptPreset> &builtIn();

    const QList<PromptPreset> &list() const { return m_list; }
    std::optional<PromptPreset> find(const QString &id) const;
    /// The prompt of this name in any case, else the one with this id.
    std::optional<PromptPreset> named(const QString &name) const;
    bool isFull() const { return m_list.size() >= maximumCount; }

    /// Name and text as they are stored: the name in one line, neither blank at its ends.
    static QString cleanName(const QString &name);
    static QString cleanText(const QString &text);
    /// Why a prompt with this name and text cannot be kept, in a sentence for the user; empty if it
    /// can.
    /// @param id the prompt that gets them; empty for a new one
    QString problem(const QString &name, const QString &text, const QString &id = {}) const;

    /// Appends a prompt; returns its id, empty if there is a problem() or the list is full.
    QString add(const QString &name, const QString &text);
    /// Returns false if there is no such prompt or a problem().
    bool change(const QString &id, const QString &name, const QString &text);
    void remove(const QString &id);
    /// Moves a prompt by @p steps places, at most to the end of the list.
    void move(const QString &id, int steps);

Q_SIGNALS:
    void changed();

private:
    qsizetype indexOf(const QString &id) const;
    void load();
    void store(const QList<PromptPreset> &list);

    UserDefaults &m_defaults;
    QList<PromptPreset> m_list;
};

} // namespace quellora
