#pragma once

#include "Fuzz.h"
#include "base/Log.h"

#include <QByteArray>
#include <QCoreApplication>

namespace quellora::fuzz {

/// The application object of a target, which must outlive all inputs. Makes the log silent.
inline void prepareQt()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
    static const bool isSilent = [] {
        Log::setSinkForTesting([](const QString &) {});
        return true;
    }();
    Q_UNUSED(isSilent)
}

inline QByteArray bytes(std::string_view text)
{
    return QByteArray(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace quellora::fuzz
