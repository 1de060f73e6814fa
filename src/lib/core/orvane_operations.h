#pragma once

#include "render_info.h"

#include <QImage>
#include <QMutex>
#include <functional>
#include <osg/OperationThread>
#include <osg/Vec4f>
#include <osgGA/GUIEventHandler>
#include <osgViewer/View>
#include <vector>

namespace Vorna {
namespace Orvane {

// A scene change, made on any thread and run once on the render thread of whichever canvas it
// is added to, in that canvas's update traversal. Subclasses implement doOperation() and read
// m_renderInfo, the context of the canvas that runs them.
class OperationBase : public osg::Operation
{
public:
    explicit OperationBase(const std::string& name = std::string());
    void operator()(osg::Object* object) final;

protected:
    ~OperationBase() override;
    virtual void doOperation() = 0;

    osg::ref_ptr<RenderInfo> m_renderInfo;
};

class LambdaOperation : public OperationBase
{
public:
    using Function = std::function<void(RenderInfo&)>;
    explicit LambdaOperation(Function function);

protected:
    void doOperation() override;

private:
    Function m_function;
};

// Runs its operations in order within one update traversal; null elements are skipped.
class MultiOperation : public osg::Operation
{
public:
    explicit MultiOperation(std::vector<osg::ref_ptr<osg::Operation>> operations);
    void operator()(osg::Object* object) override;
    const std::vector<osg::ref_ptr<osg::Operation>>& operations() const { return m_operations; }

private:
    std::vector<osg::ref_ptr<osg::Operation>> m_operations;
};

// Renders one further, nested frame.
class DrawOperation : public OperationBase
{
public:
    explicit DrawOperation(const std::string& name = "draw");

protected:
    void doOperation() override;
};

class ClearColorOperation : public OperationBase
{
public:
    explicit ClearColorOperation(const osg::Vec4f& color);

protected:
    void doOperation() override;

private:
    osg::Vec4f m_color;
};

class HomeOperation : public OperationBase
{
public:
    HomeOperation();

protected:
    void doOperation() override;
};

// Without a view, the handler goes to the main view of the canvas that runs the operation.
class AddEventHandler : public OperationBase
{
public:
    explicit AddEventHandler(osgGA::GUIEventHandler* handler, osgViewer::View* view = nullptr);
    osgViewer::View* view() const { return m_view.get(); }

protected:
    void doOperation() override;

private:
    osg::ref_ptr<osgGA::GUIEventHandler> m_handler;
    osg::ref_ptr<osgViewer::View> m_view;
};

class RemoveEventHandler : public OperationBase
{
public:
    explicit RemoveEventHandler(osgGA::GUIEventHandler* handler, osgViewer::View* view = nullptr,
                                const std::string& name = "remove eventHandler");

protected:
    void doOperation() override;

private:
    osg::ref_ptr<osgGA::GUIEventHandler> m_handler;
    osg::ref_ptr<osgViewer::View> m_view;
};

// Resizes the graphics window and with it every camera that follows it.
class GeometryChangeOperation : public osg::Operation
{
public:
    GeometryChangeOperation(int x, int y, int width, int height);
    void operator()(osg::Object* object) override;

private:
    int m_x, m_y, m_width, m_height;
};

// Copies the canvas framebuffer as it is when the update traversal runs: the previous frame.
class CaptureOperation : public OperationBase
{
public:
    explicit CaptureOperation(const std::string& name = "capture");
    // A copy: the caller polls it from its own thread while the render thread fills it.
    QImage image() const;

protected:
    void doOperation() override;

private:
    mutable QMutex m_imageMutex;
    QImage m_image;
};

} // namespace Orvane
} // namespace Vorna
