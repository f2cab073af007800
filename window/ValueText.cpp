#include "window/ValueText.h"

#include "window/NameText.h"

#include <wx/sizer.h>
#include <wx/toplevel.h>

#include <gtk/gtk.h>

#include <algorithm>

namespace
{

constexpr int INITIAL_WIDTH = 100; // in pixels
constexpr int FRAME_TIME = 33;     // milliseconds; numbers that change faster cannot be read
constexpr size_t TIP_LINE = 80;    // characters in a line of the tooltip

} // namespace

ValueText::ValueText(wxWindow* parent, wxWindowID id, const wxString& text,
                     const wxStaticText* label)
    : wxStaticText(parent, id, text, wxDefaultPosition, wxSize(INITIAL_WIDTH, -1)), m_timer(this)
{
    // A new text must not change the width by itself; FitWindow() does that.
    ToggleWindowStyle(wxST_NO_AUTORESIZE);
    gtk_label_set_ellipsize(GTK_LABEL(m_widget), PANGO_ELLIPSIZE_MIDDLE);
    // GTK makes of this the relations "label for" and "labelled by".
    gtk_label_set_mnemonic_widget(GTK_LABEL(label->GetHandle()), m_widget);
    Bind(wxEVT_TIMER, &ValueText::OnTimer, this);
    Register();
}

void ValueText::SetLabel(const wxString& text)
{
    m_labelOrig = text;
    m_waiting = true;
    if (!m_timer.IsRunning())
        HandOver();
}

int ValueText::Enter(wxDialog*)
{
    HandOver();
    return wxID_NONE;
}

void ValueText::OnTimer(wxTimerEvent&)
{
    HandOver();
}

void ValueText::HandOver()
{
    if (!m_waiting)
        return;
    m_waiting = false;
    m_timer.StartOnce(FRAME_TIME);

    const wxString text = BoundText(GetLabelText());
    gtk_label_set_text(GTK_LABEL(m_widget), text.utf8_str());
    InvalidateBestSize();
    const int width = GetBestSize().x;
    if (width > GetMinWidth())
        FitWindow(width);
    ShowWhole(width > GetMinWidth() ? text : wxString());
}

// Makes a text that had to be shortened the tooltip, in lines that fit the display; an empty text
// removes the tooltip.
void ValueText::ShowWhole(const wxString& text)
{
    wxString tip;
    for (size_t place = 0; place < text.length(); place += TIP_LINE)
        tip += (place > 0 ? "\n" : "") + text.Mid(place, TIP_LINE);
    if (tip == GetToolTipText())
        return;
    SetToolTip(tip);
    // Under the pointer GTK finds the static box instead of the text in it, and then the panel.
    GetParent()->SetToolTip(tip);
}

// Makes the window wide enough for a text of this width, in pixels, but not wider than the display.
// It grows evenly to both sides, so that it stays where it is, and does not shrink again.
void ValueText::FitWindow(int width)
{
    wxTopLevelWindow& window = dynamic_cast<wxTopLevelWindow&>(*wxGetTopLevelParent(this));
    const wxRect display = GetWorkArea(&window);
    const auto setWidth = [&](int newWidth)
    {
        SetMinSize(wxSize(newWidth, GetMinHeight()));
        return window.ClientToWindowSize(window.GetSizer()->CalcMin());
    };
    wxSize fitting = setWidth(width);
    if (fitting.x > display.width)
        fitting = setWidth(width - (fitting.x - display.width));

    window.SetMinSize(fitting);
    wxRect rect = window.GetRect();
    const int growth = fitting.x - rect.width;
    if (growth > 0)
    {
        rect.width = fitting.x;
        rect.x = std::min(rect.x - growth / 2, display.GetRight() + 1 - rect.width);
        rect.x = std::max(rect.x, display.x);
        window.SetSize(rect);
    }
    window.Layout();
}
