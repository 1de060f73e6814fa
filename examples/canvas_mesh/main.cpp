// The smallest application of the library: a QML window with the canvas and one mesh.
// With --check it exits 0 as soon as the mesh shows in the window, 1 if it never does.
#include "camera_operations.h"
#include "canvas3d_drawable.h"
#include "canvas3d_item.h"
#include "canvas3d_view.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QTimer>
#include <cstdio>
#include <osg/PrimitiveSet>

using namespace Vorna::Orvane;

namespace {

// A square facing the fitted camera, drawn by the mesh shading of the library.
osg::ref_ptr<osg::MatrixTransform> makeSquare()
{
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->push_back({-1.0f, -1.0f, 0.0f});
    vertices->push_back({1.0f, -1.0f, 0.0f});
    vertices->push_back({1.0f, 1.0f, 0.0f});
    vertices->push_back({-1.0f, 1.0f, 0.0f});
    osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
    normals->assign(4, osg::Vec3f(0.0f, 0.0f, 1.0f));
    osg::ref_ptr<osg::Vec3Array> colors = new osg::Vec3Array;
    colors->assign(4, osg::Vec3f(0.9f, 0.6f, 0.2f));
    const GLuint indices[] = {0, 1, 2, 0, 2, 3};
    osg::ref_ptr<osg::DrawElementsUInt> triangles =
        new osg::DrawElementsUInt(GL_TRIANGLES, 6, indices);
    osg::ref_ptr<osg::MatrixTransform> square =
        Mesh::create(vertices.get(), normals.get(), colors.get(), triangles.get());
    // Shading is a program of the library's catalogue, chosen by name.
    square->getOrCreateStateSet()->setAttributeAndModes(
        OrvaneSingleton::instance()->getShaderMgr()->getShader("meshcolor"),
        osg::StateAttribute::ON);
    return square;
}

bool showsMesh(const QImage& image)
{
    if (image.isNull())
        return false;
    // The square is orange, the clear colour blue.
    const QColor centre = image.pixelColor(image.width() / 2, image.height() / 2);
    return centre.red() > 100 && centre.blue() < 100;
}

} // namespace

int main(int argc, char* argv[])
{
    QGuiApplication app(argc, argv);
    const bool check = app.arguments().contains("--check");
    qmlRegisterType<Canvas3DItem>("Vorna.Orvane", 1, 0, "Canvas3DItem");

    QQmlApplicationEngine engine(QUrl("qrc:/main.qml"));
    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().value(0));
    auto* canvas = window ? window->findChild<Canvas3DItem*>("canvas") : nullptr;
    if (!canvas) {
        std::fprintf(stderr, "no canvas in main.qml\n");
        return 1;
    }

    osg::ref_ptr<osg::MatrixTransform> square = makeSquare();
    canvas->addOperation(new LambdaOperation([square](RenderInfo& info) {
        ViewMgr::getModel(info.mainView())->addChild(square.get());
    }));
    canvas->addOperation(new FitOperationAuto(nullptr, false));
    if (!check)
        return app.exec();

    // Each drawn frame is looked at once it is on screen; the deadline is only for a mesh that
    // never shows.
    QElapsedTimer clock;
    clock.start();
    QTimer::singleShot(120000, &app, [&] {
        std::fprintf(stderr, "the mesh did not show in the window within 120 s\n");
        app.exit(1);
    });
    QObject::connect(
        window, &QQuickWindow::frameSwapped, &app,
        [&] {
            const QImage image = window->grabWindow();
            if (showsMesh(image)) {
                std::printf("mesh shown after %lld ms\n", static_cast<long long>(clock.elapsed()));
                app.exit(0);
            } else {
                canvas->frame();
            }
        },
        Qt::QueuedConnection);
    return app.exec();
}
