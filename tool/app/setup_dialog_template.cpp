#include "tool/app/setup_dialog_template.h"

#include "tool/app/setup_dialog.h"

const char* const ProgressLabelText = "Shadow Build Progress:";

static const ControlTemplate Controls[] = {
    {IdCreateShadows, ControlKind::DefaultPushButton, "&Create Shadows", 5, 90, 65, 14},
    {IdExit, ControlKind::PushButton, "E&xit", 75, 90, 50, 14},
    {IdMapDirectory, ControlKind::Edit, "", 70, 5, 150, 12},
    {IdMapDirectoryLabel, ControlKind::Static, "Map File Name:", 5, 10, 50, 10},
    {IdBrowse, ControlKind::PushButton, "&Browse...", 225, 5, 40, 15},
    {IdDisplayMap, ControlKind::AutoCheckBox, "Display &Map when finished", 5, 40, 170, 15},
    {IdScriptLabel, ControlKind::Static, "Shadow Settings:", 5, 25, 60, 10},
    {IdScript, ControlKind::DropDownList, "", 70, 20, 150, 55},
    {IdProgress, ControlKind::ProgressBar, "", 5, 75, 260, 10},
    {IdProgressLabel, ControlKind::Static, ProgressLabelText, 5, 60, 80, 10},
};

const DialogTemplate SetupDialogTemplate = {
    "Parameters for Shadow Generator",         "MS Sans Serif", 8, 272, 111, Controls,
    int(sizeof Controls / sizeof Controls[0]),
};
