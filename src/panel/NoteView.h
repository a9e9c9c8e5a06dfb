// NoteView: the panel container's geometry, for the toolkit ports to place their views. The
// origin is at the bottom left: the button bar is at the bottom, the text fills the rest.
#pragma once

struct NoteRect {
    double x;
    double y;
    double width;
    double height;
};

struct NotePanelLayout {
    NoteRect publish;
    NoteRect save;
    NoteRect text;  // the text view with its scroll view
};

// The frames in a container of width x height with buttons of the given widths.
NotePanelLayout LayoutNotePanel(double width, double height, double saveWidth,
                                double publishWidth);

// Where the one-point separator above the button bar is stroked: half a point off the pixel
// grid so that it stays crisp.
double NoteViewSeparatorY(double boundsOriginY);

// The container's colours (RGB, alpha 1.0).
constexpr unsigned kNoteViewBackgroundRGB = 0xFFFFFF;
constexpr unsigned kNoteViewSeparatorRGB = 0xF2F2F2;
