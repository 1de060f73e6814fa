#include "orvane_operations.h"

#include <QOpenGLFramebufferObject>
#include <osgViewer/CompositeViewer>
#include <osgViewer/GraphicsWindow>

namespace Vorna {
namespace Orvane {

OperationBase::OperationBase(const std::string& name) : osg::Operation(name, false) {}
OperationBase::~OperationBase() = default;

void OperationBase::operator()(osg::Object* object)
{
    auto* viewer = dynamic_cast<osgViewer::CompositeViewer*>(object);
    m_renderInfo = viewer ? dynamic_cast<RenderInfo*>(viewer->getUserData()) : nullptr;
    Q_ASSERT_X(m_renderInfo, "OperationBase", "m_renderInfo");
    if (!m_renderInfo)
        return;
    CanvasBase::RunningOperation running(m_renderInfo->canvas.get());
    doOperation();
}

LambdaOperation::LambdaOperation(Function function)
    : OperationBase("lambda"), m_function(std::move(function))
{
}

void LambdaOperation::doOperation()
{
    if (m_function)
        m_function(*m_renderInfo);
}

MultiOperation::MultiOperation(std::vector<osg::ref_ptr<osg::Operation>> operations)
    : osg::Operation("multi operation", false), m_operations(std::move(operations))
{
}

void MultiOperation::operator()(osg::Object* object)
{
    for (const auto& op : m_operations)
        if (op.valid())
            (*op)(object);
}

DrawOperation::DrawOperation(const std::string& name) : OperationBase(name) {}

void DrawOperation::doOperation()
{
    if (auto* viewer = m_renderInfo->compViewer())
        viewer->frame(USE_REFERENCE_TIME);
}

ClearColorOperation::ClearColorOperation(const osg::Vec4f& color)
    : OperationBase("clear color"), m_color(color)
{
}

void ClearColorOperation::doOperation()
{
    if (auto* camera = m_renderInfo->masterCamera())
        camera->setClearColor(m_color);
}

HomeOperation::HomeOperation() : OperationBase("home") {}

void HomeOperation::doOperation()
{
    if (auto* view = m_renderInfo->mainView())
        view->home();
}

AddEventHandler::AddEventHandler(osgGA::GUIEventHandler* handler, osgViewer::View* view)
    : OperationBase("add eventHandler"), m_handler(handler), m_view(view)
{
}

void AddEventHandler::doOperation()
{
    if (!m_view)
        m_view = m_renderInfo->mainView();
    if (m_view && m_handler)
        m_view->addEventHandler(m_handler.get());
}

RemoveEventHandler::RemoveEventHandler(osgGA::GUIEventHandler* handler, osgViewer::View* view,
                                       const std::string& name)
    : OperationBase(name), m_handler(handler), m_view(view)
{
}

void RemoveEventHandler::doOperation()
{
    if (!m_view)
        m_view = m_renderInfo->mainView();
    if (m_view && m_handler)
        m_view->removeEventHandler(m_handler.get());
}

GeometryChangeOperation::GeometryChangeOperation(int x, int y, int width, int height)
    : osg::Operation("geometry change operation", false), m_x(x), m_y(y), m_width(width),
      m_height(height)
{
}

void GeometryChangeOperation::operator()(osg::Object* object)
{
    auto* viewer = dynamic_cast<osgViewer::CompositeViewer*>(object);
    if (!viewer || viewer->getNumViews() == 0)
        return;
    osgViewer::ViewerBase::Contexts contexts;
    viewer->getContexts(contexts, true);
    if (contexts.empty())
        return;
    osg::GraphicsContext* gc = viewer->getView(0)->getCamera()->getGraphicsContext();
    if (auto* window = dynamic_cast<osgViewer::GraphicsWindow*>(gc))
        window->resized(m_x, m_y, m_width, m_height);
}

CaptureOperation::CaptureOperation(const std::string& name) : OperationBase(name) {}

QImage CaptureOperation::image() const
{
    QMutexLocker lock(&m_imageMutex);
    return m_image;
}

void CaptureOperation::doOperation()
{
    if (!m_renderInfo->FBO)
        return;
    QImage image = m_renderInfo->FBO->toImage();
    QMutexLocker lock(&m_imageMutex);
    m_image = std::move(image);
}

} // namespace Orvane
} // namespace Vorna
