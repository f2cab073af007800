#include "window/RowName.h"

#include <wx/stattext.h>

#include <gtk/gtk.h>

void NameRow(wxStaticText* label, wxStaticText* value)
{
    // GTK makes of this the relations "label for" and "labelled by".
    gtk_label_set_mnemonic_widget(GTK_LABEL(label->GetHandle()), value->GetHandle());
}
