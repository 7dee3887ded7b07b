#pragma once

#include "platform/macos/PreferencesUserDefaults.h"

namespace quellora {

/// The user defaults of this program. Main thread only.
class PreferenceStoreMac : public PreferenceStore
{
public:
    QVariant value(const QString &key) const override;
    void setValue(const QString &key, const QVariant &value) override;
    void removeValue(const QString &key) override;
    bool synchronize() override;
};

} // namespace quellora
