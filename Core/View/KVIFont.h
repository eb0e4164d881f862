#pragma once

#include <QFont>
#include <QString>

// The one place that names the installer's type faces and sizes. Fonts are the platform's UI face
// at the given size in points, where one point is one device-independent pixel (the installer's
// layout is measured in points). The face can be pinned for the whole application, so that tests
// and the gallery measure the same widths on every machine.
class KVIFont
{
public:
    KVIFont() = delete;

    static QFont regular12() { return sfFontWithSize(12); }
    static QFont regular14() { return sfFontWithSize(14); }
    static QFont regular15() { return sfFontWithSize(15); }
    static QFont regular16() { return sfFontWithSize(16); }
    static QFont medium12() { return sfMediumFontWithSize(12); }
    static QFont medium14() { return sfMediumFontWithSize(14); }
    static QFont medium15() { return sfMediumFontWithSize(15); }
    static QFont medium16() { return sfMediumFontWithSize(16); }
    static QFont medium18() { return sfMediumFontWithSize(18); }
    static QFont medium24() { return sfMediumFontWithSize(24); }
    static QFont bold20() { return sfBoldFontWithSize(20); }
    static QFont bold16() { return sfBoldFontWithSize(16); }
    static QFont bold14() { return sfBoldFontWithSize(14); }

    static QFont sfFontWithSize(double size);
    static QFont sfMediumFontWithSize(double size);
    static QFont sfBoldFontWithSize(double size);

    // The face used for every font: the override when one is set, else the environment variable
    // NESTORA_UI_FONT when set, else Inter (it has every weight of the table; the set-up script
    // installs it), else the platform's general UI font.
    static QString family();
    // Pins the face for the whole application; an empty name returns to the default.
    static void setFamilyOverride(const QString &family);
};
