#include "window/FirstAppearance.h"

FirstAppearance::FirstAppearance(wxTopLevelWindow* window) : m_window(window)
{
    m_window->Bind(wxEVT_SHOW, &FirstAppearance::OnShow, this);
    m_window->Bind(wxEVT_SIZE, &FirstAppearance::OnSize, this);
}

bool FirstAppearance::Postpone(const wxEvent& event)
{
    if (m_stage != HIDDEN || !m_window->IsShown())
        return false;
    m_postponed.reset(event.Clone());
    return true;
}

void FirstAppearance::OnShow(wxShowEvent& event)
{
    event.Skip();
    if (m_stage != HIDDEN)
        return;
    m_stage = SHOWN;
    m_window->Raise();
    m_window->Centre(wxBOTH);
    m_decorations = m_window->GetSize() - m_window->GetClientSize();
    if (m_postponed)
        m_window->GetEventHandler()->QueueEvent(m_postponed.release());
}

void FirstAppearance::OnSize(wxSizeEvent& event)
{
    event.Skip();
    if (m_stage != SHOWN || m_window->GetSize() - m_window->GetClientSize() == m_decorations)
        return;
    m_stage = CENTRED;
    m_window->Centre(wxBOTH);
}
