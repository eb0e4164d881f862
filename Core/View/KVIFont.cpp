#include "Core/View/KVIFont.h"

#include <QFontDatabase>

#include <cmath>

namespace {

QString &familyOverride()
{
    static QString family;
    return family;
}

QFont fontWithSize(double size, QFont::Weight weight)
{
    QFont font(KVIFont::family());
    // Points of the installer's layout are device-independent pixels, not typographic points.
    font.setPixelSize(std::max(1, int(std::lround(size))));
    font.setWeight(weight);
    return font;
}

} // namespace

QFont KVIFont::sfFontWithSize(double size)
{
    return fontWithSize(size, QFont::Normal);
}
QFont KVIFont::sfMediumFontWithSize(double size)
{
    return fontWithSize(size, QFont::Medium);
}
QFont KVIFont::sfBoldFontWithSize(double size)
{
    return fontWithSize(size, QFont::Bold);
}

QString KVIFont::family()
{
    if (!familyOverride().isEmpty())
        return familyOverride();
    const QString fromEnvironment = qEnvironmentVariable("NESTORA_UI_FONT");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    // The table needs a regular, a medium and a bold face. Desktop UI fonts often lack the medium
    // one (it then falls back to regular), so the installer's own face comes first where installed.
    static const QString pinned = QStringLiteral("Inter");
    if (QFontDatabase::hasFamily(pinned))
        return pinned;
    return QFontDatabase::systemFont(QFontDatabase::GeneralFont).family();
}

void KVIFont::setFamilyOverride(const QString &family)
{
    familyOverride() = family;
}
