// Times the repaint that a hover causes: the same flat button, hovered and left over and over,
// once near the top-left corner of a wide panel and once far from it, offscreen. What a hover
// repaints must not depend on where the button sits.
//
//   bench_hover [screen scale, default 1] [rounds, default 400]
//
// Prints the mean time per repaint at both places (the best of nine alternating passes) and their
// ratio; exits with status 1 when the two differ by 20 % or more.

#include "Core/View/KVBackgroundView.h"
#include "Core/View/KVFlatButtons.h"
#include "Core/View/KVIFont.h"

#include <QApplication>
#include <QEnterEvent>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

// Mean processor milliseconds per repaint of the button after a hover change, every update flushed.
double hoverRepaintMilliseconds(KVButton &button, int rounds)
{
    QWidget *panel = button.parentWidget();
    // Processor time, not wall time: the machine's other work does not count.
    const std::clock_t start = std::clock();
    for (int round = 0; round < rounds; ++round) {
        if (round % 2 == 0) {
            QEnterEvent enter(QPointF(10, 10), QPointF(10, 10), button.mapToGlobal(QPointF(10, 10)));
            QApplication::sendEvent(&button, &enter);
        } else {
            QEvent leave(QEvent::Leave);
            QApplication::sendEvent(&button, &leave);
        }
        // Paints what the change marked dirty, now.
        QCoreApplication::sendPostedEvents(panel, QEvent::UpdateRequest);
    }
    return double(std::clock() - start) * 1000.0 / CLOCKS_PER_SEC / rounds;
}

} // namespace

int main(int argc, char *argv[])
{
    const QByteArray scale = argc > 1 ? QByteArray(argv[1]) : QByteArray("1");
    const int rounds = argc > 2 ? QByteArray(argv[2]).toInt() : 400;
    qputenv("QT_SCALE_FACTOR", scale);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    KVIFont::setFamilyOverride(QStringLiteral("Inter"));

    KVBackgroundView panel(nullptr, Qt::white);
    panel.resize(1200, 600);
    KVTertiaryButton button(&panel);
    button.setTitle(QStringLiteral("Details"));
    button.resize(110, 28);
    panel.show();
    QApplication::processEvents();

    // Alternating places, best of nine: other work on the machine only ever adds time.
    double milliseconds[2] = {1e9, 1e9};
    const QPoint places[2] = {{10, 10}, {1000, 500}};
    for (int pass = 0; pass < 9; ++pass) {
        for (int i = 0; i < 2; ++i) {
            button.move(places[i]);
            QApplication::processEvents();
            hoverRepaintMilliseconds(button, rounds / 10); // warm-up
            milliseconds[i] = std::min(milliseconds[i], hoverRepaintMilliseconds(button, rounds));
        }
    }
    const double ratio = milliseconds[1] / milliseconds[0];
    std::printf("scale %s: hover repaint %.3f ms at (10, 10), %.3f ms at (1000, 500), ratio %.2f\n", scale.constData(),
                milliseconds[0], milliseconds[1], ratio);
    return ratio < 1.2 && ratio > 1 / 1.2 ? 0 : 1;
}
