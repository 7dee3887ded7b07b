#pragma once

#include "sheets/look/LookModel.h"

#include <QObject>

namespace quellora {

class NonFocusPanel;
class OverlayModel;
class QueryOrchestrator;

/// Connects the question whether a captured picture is to be sent with the actions, and gives the
/// panel the keyboard while it is asked. Main thread only.
class OverlayLook : public QObject
{
    Q_OBJECT
public:
    /// All must outlive the object. Call once.
    void attach(NonFocusPanel &panel, OverlayModel &overlay, QueryOrchestrator &orchestrator);

    LookModel &model() { return m_model; }

private:
    LookModel m_model;
    bool m_tookKeyboard = false;
};

} // namespace quellora
