#include "App/Model/KVUpdateEngine.h"
#include "Core/View/KVBackgroundView.h"
#include "Core/View/KVCapsuleButtons.h"
#include "Core/View/KVCheckBox.h"
#include "Core/View/KVFlatButtons.h"
#include "Core/View/KVGeometry.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVPlainButtons.h"
#include "Core/View/KVProgressIndicator.h"
#include "Core/View/KVTextView.h"
#include "Core/View/KVToolTip.h"
#include "Core/View/KVToolTipWindow.h"
#include "Core/View/KVVAlignTextFieldCell.h"
#include "Installer/Controllers/KVIViewController.h"
#include "Installer/KVIView.h"

#include <QApplication>
#include <QDir>
#include <QFontMetricsF>
#include <QLabel>
#include <QPainter>
#include <QProcess>
#include <QTextStream>
#include <QVariantAnimation>

#include <functional>

// Renders every control in every state to one PNG per control, offscreen, at the screen scales 1,
// 1.5 and 2.
namespace {

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

// A white sheet with a title and rows of labelled cells; each cell holds one control.
class Sheet
{
public:
    Sheet(const QString &title, int columns, QSize cell)
        : m_columns(columns)
        , m_cell(cell)
    {
        m_canvas.setBackgroundColor(Qt::white);
        auto *heading = new QLabel(title, &m_canvas);
        heading->setFont(KVIFont::medium16());
        heading->move(margin, 12);
    }

    // Adds a row: a label at the left and one cell per control; `place` puts the control in its cell.
    void addRow(const QString &label, const QStringList &captions,
                const std::function<QWidget *(int column, QWidget *parent)> &make)
    {
        const int top = headingHeight + m_rows * (m_cell.height() + captionHeight + 8);
        auto *rowLabel = new QLabel(label, &m_canvas);
        rowLabel->setFont(KVIFont::medium12());
        rowLabel->setStyleSheet(QStringLiteral("color: #4A4A4A"));
        rowLabel->setGeometry(margin, top + captionHeight, labelWidth - 8, m_cell.height());
        rowLabel->setWordWrap(true);
        for (int column = 0; column < m_columns; ++column) {
            const int left = margin + labelWidth + column * (m_cell.width() + gap);
            if (column < captions.size()) {
                auto *caption = new QLabel(captions[column], &m_canvas);
                caption->setFont(KVIFont::regular12());
                caption->setStyleSheet(QStringLiteral("color: #9B9B9B"));
                caption->move(left, top);
            }
            QWidget *control = make(column, &m_canvas);
            if (!control)
                continue;
            const QSize size = control->size();
            control->move(left + (m_cell.width() - size.width()) / 2,
                          top + captionHeight + (m_cell.height() - size.height()) / 2);
        }
        ++m_rows;
    }

    // Runs once the sheet is on screen, for controls that only animate while visible.
    void whenShown(std::function<void()> action) { m_whenShown.push_back(std::move(action)); }

    bool save(const QString &path)
    {
        m_canvas.resize(margin * 2 + labelWidth + m_columns * (m_cell.width() + gap),
                        headingHeight + m_rows * (m_cell.height() + captionHeight + 8) + margin);
        m_canvas.show();
        QApplication::processEvents();
        // Only the cells that ask for it show focus: nothing keeps the focus Qt gives on showing.
        if (QWidget *focused = QApplication::focusWidget())
            focused->clearFocus();
        for (const auto &action : m_whenShown)
            action();
        QApplication::processEvents();
        const bool saved = m_canvas.grab().save(path);
        m_canvas.hide();
        return saved;
    }

private:
    static constexpr int margin = 20, labelWidth = 200, gap = 16, headingHeight = 48, captionHeight = 18;
    KVBackgroundView m_canvas;
    int m_columns;
    QSize m_cell;
    int m_rows = 0;
    std::vector<std::function<void()>> m_whenShown;
};

const QStringList buttonStates = {"Active", "Hovered", "Pressed", "Focused", "Disabled", "Active after focus"};

// Puts a button into the state of a gallery column.
void applyState(KVButton *button, int column)
{
    switch (column) {
    case 1:
        button->setFlag(KVButton::Active | KVButton::Hovered);
        break;
    case 2:
        button->setFlag(KVButton::Active | KVButton::Hovered | KVButton::Pressed);
        break;
    case 3:
        button->setFlag(KVButton::Active | KVButton::Focused);
        break;
    case 4:
        button->setEnabled(false);
        break;
    case 5: // a flat button keeps its focus shadow after losing focus
        button->setFlag(KVButton::Active | KVButton::Focused);
        button->setNeedsDisplay();
        button->setFlag(KVButton::Active);
        break;
    default:
        break;
    }
    button->setNeedsDisplay();
}

template <typename Button>
bool renderButtonKind(const QString &folder, const QString &name, QSize size, const QString &title)
{
    Sheet sheet(name, buttonStates.size(), size + QSize(24, 24));
    sheet.addRow(name + "\n(" + title + ")", buttonStates, [&](int column, QWidget *parent) {
        auto *button = new Button(parent);
        button->setTitle(title);
        button->resize(size);
        applyState(button, column);
        return button;
    });
    sheet.addRow(name + " long title", buttonStates, [&](int column, QWidget *parent) {
        auto *button = new Button(parent);
        button->setTitle(QStringLiteral("A title far too long for the button"));
        button->resize(size);
        applyState(button, column);
        return button;
    });
    return sheet.save(folder + "/" + name + ".png");
}

bool renderIconButton(const QString &folder)
{
    Sheet sheet("KVIconButton", 5, QSize(48, 40));
    for (const QString kind : {"minimize", "close"}) {
        const QString base = "installer_window_" + kind;
        sheet.addRow(base, buttonStates.mid(0, 5), [&](int column, QWidget *parent) {
            auto *button = new KVIconButton(KVImage::named(base), KVImage::named(base + " hover"),
                                            KVImage::named(base + " pressed"), parent);
            button->resize(24, 24);
            applyState(button, column);
            return button;
        });
    }
    return sheet.save(folder + "/KVIconButton.png");
}

bool renderCheckBox(const QString &folder)
{
    Sheet sheet("KVCheckBox", 3, QSize(300, 44));
    for (const QString &title : {QString(), QStringLiteral("I agree to the licence agreement")}) {
        sheet.addRow(title.isEmpty() ? "KVCheckBox" : "KVCheckBox with title", {"unchecked", "checked", "focused"},
                     [&sheet, title](int column, QWidget *parent) {
                         auto *box = new KVCheckBox(parent);
                         box->setTitle(title);
                         box->setChecked(column == 1);
                         box->resize(box->sizeHint());
                         if (column == 2)
                             sheet.whenShown([box] { box->setFocus(Qt::TabFocusReason); });
                         return box;
                     });
    }
    sheet.addRow("KVButton with KVIAdditinalCheckboxButtonCell, one line + 5 tall", {"unchecked", "checked"},
                 [](int column, QWidget *parent) {
                     auto *button = new KVButton(parent);
                     button->setCell(std::make_unique<KVIAdditinalCheckboxButtonCell>());
                     button->setImage(KVImage::named(column ? "CheckboxChecked" : "CheckboxUnchecked"));
                     button->setTitle(QStringLiteral("   Do not ask again"));
                     button->setTextColor(QColor(74, 74, 74));
                     button->setNeedsDisplay();
                     button->resize(220, int(QFontMetricsF(button->font()).height()) + 5);
                     return button;
                 });
    return sheet.save(folder + "/KVCheckBox.png");
}

bool renderProgressIndicator(const QString &folder)
{
    Sheet sheet("KVProgressIndicator", 1, QSize(340, 24));
    const auto determinate = [&](double value) {
        sheet.addRow(QStringLiteral("value %1").arg(value), {}, [value](int, QWidget *parent) {
            auto *indicator = new KVProgressIndicator(parent);
            indicator->resize(320, 6);
            indicator->setDoubleValue(value);
            return indicator;
        });
    };
    determinate(0.0);
    determinate(0.37);
    determinate(1.0);
    sheet.addRow("value 0.6, custom colours", {}, [](int, QWidget *parent) {
        auto *indicator = new KVProgressIndicator(parent);
        indicator->resize(320, 6);
        indicator->setProgressColors({QColor(229, 76, 85), QColor(255, 170, 60), QColor(60, 180, 90)});
        indicator->setDoubleValue(0.6);
        return indicator;
    });
    for (const double fraction : {0.25, 0.6}) {
        sheet.addRow(QStringLiteral("indeterminate, sweeping (%1 of a pass)").arg(fraction), {},
                     [&sheet, fraction](int, QWidget *parent) {
                         auto *indicator = new KVProgressIndicator(parent);
                         indicator->resize(320, 6);
                         indicator->setIndeterminate(true);
                         indicator->startAnimation();
                         // Freeze the running sweep part-way through a pass.
                         sheet.whenShown([indicator, fraction] {
                             if (auto *sweep = indicator->findChild<QVariantAnimation *>()) {
                                 sweep->pause();
                                 sweep->setCurrentTime(int(sweep->duration() * fraction));
                             }
                         });
                         return indicator;
                     });
    }
    sheet.addRow("indeterminate, stopped", {}, [](int, QWidget *parent) {
        auto *indicator = new KVProgressIndicator(parent);
        indicator->resize(320, 6);
        indicator->setIndeterminate(true);
        indicator->startAnimation();
        indicator->stopAnimation();
        return indicator;
    });
    return sheet.save(folder + "/KVProgressIndicator.png");
}

// A window with one button; the visible frame is chosen so the tip must take the wanted position.
QImage renderToolTipScene(int position)
{
    QWidget window;
    window.setAttribute(Qt::WA_StyledBackground);
    window.setStyleSheet(QStringLiteral("background: #F8F8F8"));
    window.setGeometry(200, 200, 420, 150);
    auto *button = new KVSecondaryButton(&window);
    button->setTitle(QStringLiteral("Continue"));
    button->resize(110, 32);
    const bool left = position == 9 || position == 11;
    const bool right = position == 8 || position == 10;
    const bool above = position == 3 || position == 8 || position == 9;
    button->move(left ? 14 : right ? 420 - 14 - 110 : 155, above ? 100 : 20);
    window.show();
    QApplication::processEvents();

    const QRect screen(0, 0, 1000, above ? window.geometry().bottom() - 10 : 1000);
    KVGeometry::setVisibleFrameProvider([screen](const QWidget *) { return screen; });
    auto tip =
        KVToolTip::create(QStringLiteral("Read the licence agreement before you continue with the installation"));
    tip->setOffset(button->height() / 2.0);
    const QPointF centre = QPointF(button->pos()) + QPointF(button->width() / 2.0, button->height() / 2.0);
    tip->displayToolTipInWindow(&window, centre);
    QApplication::processEvents();
    KVGeometry::setVisibleFrameProvider({});

    const QRect windowFrame = window.geometry();
    const QRect tipFrame = tip->window()->geometry();
    const QRect all = windowFrame.united(tipFrame).adjusted(-16, -36, 16, 16);
    // At the screen's scale, so the balloon is as sharp as on that screen.
    const qreal scale = window.devicePixelRatio();
    QImage image(all.size() * scale, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setFont(KVIFont::medium12());
    painter.setPen(QColor(74, 74, 74));
    painter.drawText(
        QPoint(16, 20),
        QStringLiteral("position %1 (asked for %2)").arg(unsigned(tip->window()->toolTipPosition())).arg(position));
    painter.drawPixmap(windowFrame.topLeft() - all.topLeft(), window.grab());
    painter.drawPixmap(tipFrame.topLeft() - all.topLeft(), tip->window()->grab());
    return image;
}

bool renderToolTips(const QString &folder)
{
    QList<QImage> scenes;
    for (const int position : {1, 3, 8, 9, 10, 11})
        scenes << renderToolTipScene(position);
    int width = 0, height = 0;
    for (const QImage &scene : scenes) {
        width = std::max(width, scene.width());
        height += scene.height();
    }
    QImage sheet(width, height, QImage::Format_ARGB32_Premultiplied); // in pixels: the scenes' own scale
    sheet.fill(Qt::white);
    QPainter painter(&sheet);
    int top = 0;
    for (QImage scene : scenes) {
        scene.setDevicePixelRatio(1.0);
        painter.drawImage(0, top, scene);
        top += scene.height();
    }
    return sheet.save(folder + "/KVToolTip.png");
}

bool renderFontsAndText(const QString &folder)
{
    Sheet sheet("KVIFont, KVTextMeasure, KVVAlignTextFieldCell, KVBackgroundView", 1, QSize(420, 40));
    const QList<std::pair<QString, QFont>> fonts = {
        {"regular12", KVIFont::regular12()}, {"regular14", KVIFont::regular14()}, {"regular15", KVIFont::regular15()},
        {"regular16", KVIFont::regular16()}, {"medium12", KVIFont::medium12()},   {"medium14", KVIFont::medium14()},
        {"medium15", KVIFont::medium15()},   {"medium16", KVIFont::medium16()},   {"medium18", KVIFont::medium18()},
        {"medium24", KVIFont::medium24()},   {"bold20", KVIFont::bold20()},       {"bold16", KVIFont::bold16()},
        {"bold14", KVIFont::bold14()}};
    for (const auto &[name, font] : fonts) {
        sheet.addRow(name, {}, [font](int, QWidget *parent) {
            auto *label = new QLabel(QStringLiteral("Nestora Installer %1 px").arg(font.pixelSize()), parent);
            label->setFont(font);
            label->adjustSize();
            return label;
        });
    }
    sheet.addRow("KVTextView at its measured height (outline: measured box)", {}, [](int, QWidget *parent) {
        const KVTextAttributes attributes{.font = KVIFont::regular14(),
                                          .foregroundColor = QColor(74, 74, 74),
                                          .alignment = Qt::AlignHCenter,
                                          .lineSpacing = 8.0};
        const QString text = QStringLiteral("Downloading the device data files. This takes a moment.");
        auto *frame = new KVBackgroundView(parent, QColor(0, 120, 214, 40));
        auto *view = new KVTextView(frame);
        view->setAttributes(attributes);
        view->setString(text);
        const double height = KVTextMeasure::heightWithString(text, attributes, 260);
        view->setGeometry(0, 0, 260, int(std::ceil(height)));
        frame->resize(view->size());
        return frame;
    });
    sheet.addRow("KVVAlignTextFieldCell in a 40 pt frame", {}, [](int, QWidget *parent) {
        auto *frame = new KVBackgroundView(parent, QColor(0, 120, 214, 40));
        auto *field = new KVVAlignTextFieldCell(QStringLiteral("Vertically centred line"), frame);
        field->setFont(KVIFont::medium15());
        field->setGeometry(0, 0, 260, 40);
        frame->resize(field->size());
        return frame;
    });
    sheet.addRow("KVBackgroundView panel colour", {}, [](int, QWidget *parent) {
        auto *panel = new KVBackgroundView(parent, KVBackgroundView::panelColor());
        panel->resize(260, 36);
        return panel;
    });
    return sheet.save(folder + "/KVIFont.png");
}

bool renderArtwork(const QString &folder)
{
    QList<std::pair<QString, QStringList>> groups = {
        {"check boxes", {"IconCheckbox", "IconCheckmark", "CheckboxUnchecked", "CheckboxChecked"}}};
    for (const QString kind : {"minimize", "close"}) {
        const QString base = "installer_window_" + kind;
        groups.append({base, {base, base + " hover", base + " pressed"}});
    }
    for (const int first : {1, 7}) {
        QStringList frames;
        for (int frame = first; frame < first + 6; ++frame)
            frames << QStringLiteral("installer progress  %1").arg(frame);
        groups.append({QStringLiteral("indicator frames (2x)"), frames});
    }
    Sheet sheet("Artwork, looked up by name", 6, QSize(150, 70));
    for (const auto &[label, names] : groups) {
        QStringList captions;
        for (const QString &name : names)
            captions << '"' + QString(name).replace("installer_window_", "") + '"';
        sheet.addRow(label, captions, [names](int column, QWidget *parent) -> QWidget * {
            if (column >= names.size())
                return nullptr;
            const KVImage image = KVImage::named(names[column]);
            auto *label = new QLabel(parent);
            if (image.isNull()) {
                label->setText(QStringLiteral("missing"));
            } else {
                // Twice the natural size, to show the artwork stays crisp.
                QPixmap pixmap = image.pixmap(2.0);
                pixmap.setDevicePixelRatio(1.0);
                label->setPixmap(pixmap);
            }
            label->adjustSize();
            return label;
        });
    }
    return sheet.save(folder + "/Artwork.png");
}

// An engine whose every check or run fails at once with the error it is given, or whose installer
// check offers an installer whose update then fails: the installer screen's error states.
class KVFailingEngine : public KVUpdateEngine
{
public:
    KVFailingEngine(KVError checkError, KVError runError)
        : m_checkError(std::move(checkError))
        , m_runError(std::move(runError))
    {}
    void checkInstallerUpdateWithcompletionHandler(std::function<void(KVINISectionPtr, KVError)> handler) override
    {
        handler(m_runError ? std::make_shared<KVINISection>(QStringLiteral("Mac_Installer_1.1.0")) : nullptr,
                m_checkError);
    }
    void updateInstaller(const KVINISectionPtr &, KVProgressHandler, KVUpdateCompletionHandler completion) override
    {
        completion({}, m_runError);
    }
    void checkUpdateWithcompletionHandler(std::function<void(QList<KVINISectionPtr>, KVError)> handler) override
    {
        handler({}, m_checkError);
    }
    void updateWithSections(const QList<KVINISectionPtr> &, KVProgressHandler,
                            KVUpdateCompletionHandler completion) override
    {
        completion({}, m_runError);
    }

private:
    KVError m_checkError;
    KVError m_runError;
};

bool renderErrorScreens(const QString &folder)
{
    const QList<std::pair<QString, std::pair<KVError, KVError>>> states = {
        {"check failed: HTTP 404", {KVError(KVURLErrorDomain, -1011, {{KVHTTPStatusKey, 404}}), KVError()}},
        {"check failed: server unreachable",
         {KVError(KVURLErrorDomain, -1004, {{KVLocalizedDescriptionKey, QStringLiteral("Connection refused")}}),
          KVError()}},
        {"check failed: update information not verified",
         {KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorManifestUnverified,
                  {{KVLocalizedDescriptionKey,
                    QStringLiteral("it is signed with the key 4F18B7C85FE8452C, which is revoked")}}),
          KVError()}},
        {"run failed: redirected to plain HTTP",
         {KVError(),
          KVError(KVURLErrorDomain, KVURLErrorInsecureRedirect,
                  {{KVFailingURLStringKey, QStringLiteral("http://updates.example.com/nestora/Nestora-2.2.0.zip")}})}},
        {"run failed: damaged download",
         {KVError(), KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorMD5Mismatch)}},
    };
    std::vector<std::unique_ptr<KVFailingEngine>> engines;
    Sheet sheet("Installer screen: errors offer Try Again", 1, KVIViewController::viewSize);
    for (const auto &[label, errors] : states) {
        engines.push_back(std::make_unique<KVFailingEngine>(errors.first, errors.second));
        KVFailingEngine *engine = engines.back().get();
        sheet.addRow(label, {}, [engine](int, QWidget *parent) {
            KVIViewController::Environment environment{.startNetworkMonitor = [] {},
                                                       .openURL = [](const QUrl &) { return false; },
                                                       .terminateApplication = [] {}};
            auto *controller = new KVIViewController(*engine, nullptr, environment);
            controller->view()->setParent(parent);
            controller->handleNetworkReachableNotification(); // the network is up: the flow starts
            return controller->view();
        });
    }
    return sheet.save(folder + "/KVIViewController.png");
}

} // namespace

// Renders each screen scale into a folder of its own ("1x", "1.5x", "2x"), one process per scale:
// Qt reads the scale factor once, when the application starts.
int renderEveryScale(const QString &program, const QString &folder)
{
    int failures = 0;
    for (const QString scale : {"1", "1.5", "2"}) {
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_SCALE_FACTOR"), scale);
        child.setProcessEnvironment(environment);
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(program, {QStringLiteral("--one-scale"), folder + QLatin1Char('/') + scale + QLatin1Char('x')});
        if (!child.waitForFinished(-1) || child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0) {
            err() << "scale " << scale << " failed\n";
            ++failures;
        }
    }
    return failures ? 1 : 0;
}

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const QStringList arguments = application.arguments().mid(1);
    const bool oneScale = arguments.value(0) == QStringLiteral("--one-scale");
    if (arguments.size() != (oneScale ? 2 : 1)) {
        err() << "usage: nestora-gallery <output folder>\n";
        return 2;
    }
    if (!oneScale)
        return renderEveryScale(application.applicationFilePath(), arguments.first());
    const QString folder = arguments.last();
    if (!QDir().mkpath(folder)) {
        err() << "cannot create " << folder << "\n";
        return 1;
    }
    // The same face on every machine, so the sheets can be compared.
    if (qEnvironmentVariableIsEmpty("NESTORA_UI_FONT"))
        KVIFont::setFamilyOverride(QStringLiteral("Inter"));

    const QList<std::pair<QString, std::function<bool()>>> sheets = {
        {"KVPrimaryButton",
         [&] {
             return renderButtonKind<KVPrimaryButton>(folder, "KVPrimaryButton", {130, 32}, "Continue");
         }},
        {"KVSecondaryButton",
         [&] {
             return renderButtonKind<KVSecondaryButton>(folder, "KVSecondaryButton", {130, 32}, "Cancel");
         }},
        {"KVTertiaryButton",
         [&] {
             return renderButtonKind<KVTertiaryButton>(folder, "KVTertiaryButton", {110, 28}, "Details");
         }},
        {"KVPrimary4DialogButton",
         [&] {
             return renderButtonKind<KVPrimary4DialogButton>(folder, "KVPrimary4DialogButton", {90, 28}, "Resume");
         }},
        {"KVSecondary4DialogButton",
         [&] {
             return renderButtonKind<KVSecondary4DialogButton>(folder, "KVSecondary4DialogButton", {90, 28}, "Cancel");
         }},
        {"KVLinkButton",
         [&] {
             return renderButtonKind<KVLinkButton>(folder, "KVLinkButton", {150, 24}, "Licence agreement");
         }},
        {"KVMenuButton",
         [&] {
             return renderButtonKind<KVMenuButton>(folder, "KVMenuButton", {180, 32}, "Check for updates");
         }},
        {"KVIconButton", [&] { return renderIconButton(folder); }},
        {"KVCheckBox", [&] { return renderCheckBox(folder); }},
        {"KVProgressIndicator", [&] { return renderProgressIndicator(folder); }},
        {"KVToolTip", [&] { return renderToolTips(folder); }},
        {"KVIFont", [&] { return renderFontsAndText(folder); }},
        {"Artwork", [&] { return renderArtwork(folder); }},
        {"KVIViewController", [&] { return renderErrorScreens(folder); }},
    };
    int failures = 0;
    for (const auto &[name, render] : sheets) {
        if (!render()) {
            err() << "failed to write " << name << ".png\n";
            ++failures;
        }
    }
    return failures ? 1 : 0;
}
