// The viewer: a QML window with a Canvas3DItem, or a windowless offscreen canvas, driven only
// through operations, as an application embedding the library would.
#include "builtin_scene.h"
#include "marker_reader.h"
#include "model_reader.h"
#include "scan_simulator.h"
#include "scene_wait.h"
#include "undo_history.h"
#include "viewer_cut_disc.h"
#include "viewer_cylinder.h"
#include "viewer_effects.h"
#include "viewer_gizmo.h"
#include "viewer_keys.h"
#include "viewer_point_budget.h"
#include "viewer_selection.h"
#include "viewer_transparent.h"

#include "camera_operations.h"
#include "canvas3d_item.h"
#include "canvas3d_offscreen.h"
#include "canvas3d_view.h"
#include "incre_point_geomtry_apple.h"
#include "orvane_operations.h"
#include "view_datum_operation.h"

#include <QCommandLineParser>
#include <QGuiApplication>
#include <QMutex>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickWindow>
#include <QTimer>
#include <atomic>
#include <cstdio>
#include <memory>
#include <osg/Geode>

using namespace Vorna::Orvane;

namespace {

// The scene: the given models (the built-in mesh when there are none) and, when a scan plays,
// the live cloud it fills.
void addScene(CanvasBase* canvas, const std::vector<osg::ref_ptr<osg::Node>>& models,
              osg::ref_ptr<IncrePointGeometryApple> cloud, ScanSimulator* scan,
              UndoHistory* history)
{
    for (const osg::ref_ptr<osg::Node>& model : models)
        canvas->addOperation(new LambdaOperation([model](RenderInfo& info) {
            ViewMgr::getModel(info.mainView())->addChild(model.get());
        }));
    if (cloud)
        canvas->addOperation(new LambdaOperation([cloud, scan](RenderInfo& info) {
            cloud->startScan(ViewMgr::getModel(info.mainView()), true);
            // Patches sent before the cloud is set up would be dropped.
            if (scan)
                scan->start(info.canvas.get());
        }));
    canvas->addOperation(new AddEventHandler(new ViewerKeys(history)));
    canvas->addOperation(new AddEventHandler(new ViewerGizmo(models, history)));
    canvas->addOperation(new AddEventHandler(new ViewerCutDisc));
    canvas->addOperation(new AddEventHandler(new ViewerCylinder));
    canvas->addOperation(new AddEventHandler(new ViewerEffects));
    canvas->addOperation(new AddEventHandler(new ViewerTransparency));
    canvas->addOperation(new ViewDatumOperation(nullptr, true));
    canvas->addOperation(new FitOperationAuto(nullptr, false));
}

// A slow machine only takes longer; a scene that never completes ends the run with a reason.
void exitOnTimeout(QGuiApplication& app, const SceneWait& wait, int seconds)
{
    QTimer::singleShot(seconds * 1000, &app, [&app, &wait, seconds] {
        std::fprintf(stderr, "gave up after %d s waiting for %s\n", seconds,
                     qPrintable(wait.waitingFor()));
        app.exit(1);
    });
}

// The help line: every key the viewer answers, a few to a line.
QString keyHelp()
{
    static const char* const keys[] = {"F fit",
                                       "2-7 views",
                                       "O ortho/persp",
                                       "M material",
                                       "G gizmo",
                                       "J adjust rings",
                                       "C cut disc",
                                       "Y cylinder",
                                       "Ctrl+Z undo",
                                       "Ctrl+Shift+Z redo",
                                       "type orvdbg: debug panel"};
    QString help;
    int n = 0;
    for (const char* key : keys)
        help += QString(n == 0 ? "" : (n % 6 == 0 ? "\n" : ", ")) + key, ++n;
    return help;
}

bool saveImage(const QImage& image, const QString& path)
{
    const bool saved = !image.isNull() && image.save(path);
    std::fprintf(saved ? stdout : stderr, "%s %s (%dx%d)\n", saved ? "saved" : "could not save",
                 qPrintable(path), image.width(), image.height());
    return saved;
}

// Renders with no window and saves the first frame that shows the whole scene.
int runOffscreen(QGuiApplication& app, int width, int height, const QString& out,
                 const std::vector<osg::ref_ptr<osg::Node>>& models,
                 osg::ref_ptr<IncrePointGeometryApple> cloud, ScanSimulator* scan, SceneWait& wait,
                 int timeoutSeconds)
{
    int code = 1;
    std::atomic<bool> handed{false};
    UndoHistory history; // outlives the canvas, whose thread replays it
    Canvas3DOffscreenSurface surface(width, height, [&](osg::ref_ptr<osg::Image>& image) {
        if (handed || !image || !wait.frameDrawn())
            return;
        handed = true;
        // The canvas hands over RGB rows, top row first.
        const QImage frame =
            QImage(image->data(), image->s(), image->t(),
                   static_cast<int>(image->getRowStepInBytes()), QImage::Format_RGB888)
                .copy();
        QMetaObject::invokeMethod(
            &app, [&app, &code, frame, out] { app.exit(code = saveImage(frame, out) ? 0 : 1); },
            Qt::QueuedConnection);
    });
    CanvasBase* canvas = surface.getCanvasBase();
    canvas->addOperation(new ClearColorOperation(osg::Vec4f(0.125f, 0.141f, 0.173f, 1.0f)));
    addScene(canvas, models, cloud, scan, &history);
    canvas->addOperation(wait.marker());
    exitOnTimeout(app, wait, timeoutSeconds);
    app.exec();
    return code;
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName("orvane_viewer");

    QCommandLineParser parser;
    parser.setApplicationDescription("Shows the liborvane canvas on a built-in scene.");
    parser.addHelpOption();
    QCommandLineOption grabOption("grab", "Render, save the window to <png> and quit.", "png");
    QCommandLineOption offscreenOption("offscreen", "Render without a window, save and quit.");
    QCommandLineOption outOption("out", "Where --offscreen writes its image.", "png",
                                 "orvane_viewer.png");
    QCommandLineOption sizeOption("size", "Window size as WxH.", "WxH", "1024x768");
    QCommandLineOption pointsOption("scan-points", "Points of the simulated scan.", "n", "200000");
    QCommandLineOption patchOption("patch-points", "Points per patch.", "n", "5000");
    QCommandLineOption rateOption("patches-per-second", "Patches per second.", "n", "50");
    QCommandLineOption scanOption("scan", "Replay the points of <file> as a live scan.", "file");
    QCommandLineOption waitPointsOption(
        "wait-points",
        "With a scan, --grab and --offscreen save once this many points are drawn "
        "(default: the whole scan).",
        "n", "0");
    QCommandLineOption markersOption(
        "markers", "Show the targets of <file>: one a line, x y z nx ny nz radius [code].", "file");
    QCommandLineOption timeoutOption(
        "timeout", "Seconds --grab and --offscreen wait for the complete scene.", "s", "60");
    QCommandLineOption budgetOption(
        "point-budget", "Draw at most n scan points a frame while the view moves (0: all).", "n",
        "0");
    parser.addOptions({grabOption, offscreenOption, outOption, sizeOption, pointsOption,
                       patchOption, rateOption, scanOption, waitPointsOption, timeoutOption,
                       markersOption, budgetOption});
    parser.addPositionalArgument("files", "Meshes and point clouds to open (PLY, OBJ, STL, XYZ, "
                                          "ASC, TXT, PTS).");
    parser.process(app);

    const QStringList size = parser.value(sizeOption).split('x');
    const int width = size.value(0).toInt(), height = size.value(1).toInt();
    if (size.size() != 2 || width <= 0 || height <= 0) {
        std::fprintf(stderr, "bad --size '%s', expected WxH\n",
                     qPrintable(parser.value(sizeOption)));
        return 2;
    }

    QStringList problems;
    std::vector<osg::ref_ptr<osg::Node>> models;
    for (const QString& path : parser.positionalArguments()) {
        LoadedModel model = loadModel(path);
        if (model.node)
            models.push_back(model.node);
        else
            problems << model.error;
    }
    if (parser.isSet(markersOption)) {
        // Bad lines are skipped and reported; the good ones still show.
        const MarkerFile markers = readMarkerFile(parser.value(markersOption));
        problems << markers.problems;
        if (!markers.markers.empty())
            models.push_back(buildMarkers(markers.markers));
    }
    for (const QString& problem : problems)
        std::fprintf(stderr, "%s\n", qPrintable(problem));
    const bool builtin = parser.positionalArguments().isEmpty() && !parser.isSet(scanOption) &&
                         !parser.isSet(markersOption);
    if (builtin)
        models.push_back(createBuiltinMesh());

    // The simulated scan outlives whatever shows its progress.
    osg::ref_ptr<IncrePointGeometryApple> cloud;
    std::unique_ptr<ScanSimulator> scan;
    if (builtin || parser.isSet(scanOption)) {
        cloud = new IncrePointGeometryApple(false, false);
        scan.reset(new ScanSimulator(cloud.get(), parser.value(pointsOption).toInt(),
                                     parser.value(patchOption).toInt(),
                                     parser.value(rateOption).toInt()));
        cloud->setBoxValue(osg::Vec3f(1.8f, -0.8f, -0.8f), osg::Vec3f(3.4f, 0.8f, 0.8f));
    }
    if (parser.isSet(scanOption)) {
        const LoadedModel source = readPointList(parser.value(scanOption));
        if (!source.node) {
            std::fprintf(stderr, "%s\n", qPrintable(source.error));
            return 1;
        }
        osg::Geometry* geometry = source.node->asGeode()->getDrawable(0)->asGeometry();
        auto* points = static_cast<osg::Vec3Array*>(geometry->getVertexArray());
        scan->setSource(points, dynamic_cast<osg::Vec3Array*>(geometry->getNormalArray()));
        const osg::BoundingBox box = geometry->getBoundingBox();
        cloud->setBoxValue(box._min, box._max);
    }
    if (!builtin && models.empty() && !cloud) {
        std::fprintf(stderr, "nothing to show\n");
        return 1;
    }

    const int timeout = parser.value(timeoutOption).toInt();
    if (timeout <= 0) {
        std::fprintf(stderr, "bad --timeout '%s', expected seconds\n",
                     qPrintable(parser.value(timeoutOption)));
        return 2;
    }
    SceneWait wait(cloud.get(), scan.get(), parser.value(waitPointsOption).toInt());
    if (parser.isSet(offscreenOption))
        return runOffscreen(app, width, height, parser.value(outOption), models, cloud, scan.get(),
                            wait, timeout);

    qmlRegisterType<Canvas3DItem>("Vorna.Orvane", 1, 0, "Canvas3DItem");
    // Outlives the window, whose render thread reads it.
    std::atomic<bool> grabbing{false};
    UndoHistory history;
    ViewerSelection selection(&history); // outlives the window, as the history does
    ViewerPointBudget budget(cloud.get());
    if (cloud && !budget.apply(parser.value(budgetOption))) {
        std::fprintf(stderr, "bad --point-budget '%s', expected a count of points\n",
                     qPrintable(parser.value(budgetOption)));
        return 2;
    }
    QQmlApplicationEngine engine;
    engine.rootContext()->setContextProperty("viewerWidth", width);
    engine.rootContext()->setContextProperty("viewerHeight", height);
    const QString shown =
        builtin ? QString("built-in scene: torus") : QString("%1 file(s) open").arg(models.size());
    engine.rootContext()->setContextProperty(
        "viewerStatus",
        shown + "\n" + keyHelp() + (problems.isEmpty() ? QString() : "\n" + problems.join("\n")));
    engine.rootContext()->setContextProperty("scan", scan.get());
    engine.rootContext()->setContextProperty("selection", &selection);
    engine.rootContext()->setContextProperty("pointBudget", cloud ? &budget : nullptr);
    engine.load(QUrl("qrc:/viewer/main.qml"));
    if (engine.rootObjects().isEmpty())
        return 1;
    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().first());
    auto* canvas = window->findChild<Canvas3DItem*>("canvas");
    addScene(canvas->getCanvasBase(), models, cloud, scan.get(), &history);
    selection.install(canvas->getCanvasBase());

    if (parser.isSet(grabOption)) {
        canvas->getCanvasBase()->addOperation(wait.marker());
        const QString path = parser.value(grabOption);
        // On the render thread, after each frame: the first that shows everything is read back.
        QObject::connect(
            window, &QQuickWindow::afterRendering, window,
            [&app, &wait, &grabbing, window, path] {
                if (grabbing || !wait.frameDrawn())
                    return;
                grabbing = true;
                QMetaObject::invokeMethod(
                    &app,
                    [&app, window, path] {
                        app.exit(saveImage(window->grabWindow(), path) ? 0 : 1);
                    },
                    Qt::QueuedConnection);
            },
            Qt::DirectConnection);
        exitOnTimeout(app, wait, timeout);
    }
    return app.exec();
}
