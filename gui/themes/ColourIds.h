#pragma once

/** The colour ids the editors draw with; every theme supplies all of them. */
namespace ThemeColourIds
{
enum
{
    buttonBackground = 0x1000100, ///< + 1 when toggled on
    buttonBackgroundOn = 0x1000101,
    buttonGlyph = 0x1000102,   ///< + 1 when toggled on
    buttonGlyphOn = 0x1000103, ///< also the text beside an icon
    buttonText = 0x1000103,
    plotBackground = 0x2000200,
    plotBorder = 0x2000300,
    plotGrid = 0x2000400,
    plotShadow = 0x2001001, ///< the shadow band along the plot's top edge
    axisLabel = 0x2001100,
    editorBackground = 0x2002000,
    editorText = 0x2002001,
    headerBackground = 0x2002100,
    headerText = 0x2002101,
    accent = 0x2002200
};
}
