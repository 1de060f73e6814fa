#pragma once

#include <QObject>
#include <QSharedPointer>

#include <osg/Array>
#include <osg/Camera>
#include <osg/Group>
#include <osg/MatrixTransform>
#include <osg/Matrixd>
#include <osg/Vec2f>
#include <osg/Vec4>
#include <osgGA/GUIEventHandler>

#include <functional>
#include <vector>

namespace osgViewer {
class View;
}

namespace Vorna {
namespace Orvane {

// A figure sketched over a view. Overlay coordinates are window pixels, rows counted from the
// bottom, z 0; the figure lives under the parent group given to the constructor (an overlay
// camera from DrawManipulator::createOverlayCamera, or a scene group for the sphere). Render
// thread; the signals are emitted there.
class DrawObject : public QObject
{
    Q_OBJECT
public:
    explicit DrawObject(osg::Group* parentGroup = nullptr, QObject* parent = nullptr);
    ~DrawObject() override;

    void setParentGroup(osg::Group* group) { m_parentGroup = group; }
    osg::Group* getParentGroup() const { return m_parentGroup.get(); }

    // The figure's geometry as the host reads it to make a mask.
    virtual osg::Vec3Array* getVertexArray();
    virtual osg::Matrixd getFirstMatrix();
    virtual void getAllMatrix(std::vector<osg::Matrixd>& matrices);

    void enterDraw(const osg::Vec2f& point);
    void exitDraw();
    virtual bool startDraw(const osg::Vec2f& point);
    virtual bool updateDraw(const osg::Vec2f& point);
    virtual bool cancelDraw();
    virtual bool finishDraw();
    virtual bool scrowUp() { return false; }
    virtual bool scrowDown() { return false; }
    virtual bool doubleClicked(osgGA::GUIEventAdapter::MouseButtonMask button,
                               const osg::Vec2f& point);
    virtual bool move(const osg::Vec2f& point);
    virtual void addDrawNodeToScene();
    virtual void deleteDrawNodeInScene();
    virtual osg::Node* createDrawNode() = 0;

    bool isDrawing() const { return m_isDrawing; }
    void setModKeyMask(int mask) { m_modKeyMask = mask; }
    int getModKeyMask() const { return m_modKeyMask; }
    void setUseEraseColor(bool use);
    bool getUseEraseColor() const { return m_useEraseColor; }
    const osg::Vec4& currentColor() const { return m_useEraseColor ? m_eraseColor : m_normalColor; }
    const std::vector<osg::ref_ptr<osg::MatrixTransform>>& drawNodes() const { return m_drawNodes; }

    // Device pixel ratio of the first top-level window, 1.0 without one.
    static float devicePixelRatio();

signals:
    void entered();
    void exited();
    void started();
    void updated();
    void canceled();
    void finished();
    void moved();
    void scrowed();

protected:
    virtual void enterImplementation(const osg::Vec2f&) {}
    virtual void exitImplementation() {}
    virtual void startImplementation(const osg::Vec2f&) {}
    virtual void updateImplementation(const osg::Vec2f&) {}
    virtual void cancelImplementation() {}
    virtual void finishImplementation() {}
    virtual void switchColor() {}

    std::vector<osg::ref_ptr<osg::MatrixTransform>> m_drawNodes;
    bool m_isDrawing = false;
    osg::Vec4 m_normalColor{1.0f, 0.15f, 0.15f, 1.0f};
    osg::Vec4 m_eraseColor{0.6f, 0.85f, 0.917f, 1.0f};
    bool m_useEraseColor = false;
    int m_modKeyMask = 0;
    osg::ref_ptr<osg::Group> m_parentGroup;
};

// A closed line figure: rectangle, lasso and polygon share it.
class DrawLineFigure : public DrawObject
{
    Q_OBJECT
public:
    using DrawObject::DrawObject;
    osg::Vec3Array* getVertexArray() override;
    osg::Node* createDrawNode() override;

protected:
    osg::Geometry* lineGeometry() const;
    void ensureFigure();
    void cancelImplementation() override { deleteDrawNodeInScene(); }
    void finishImplementation() override { deleteDrawNodeInScene(); }
    void exitImplementation() override { deleteDrawNodeInScene(); }
    void switchColor() override;
};

// A click: finished when the mouse comes back up near where it went down, else canceled.
class DrawPoint : public DrawObject
{
    Q_OBJECT
public:
    using DrawObject::DrawObject;
    bool finishDraw() override;
    osg::Node* createDrawNode() override { return nullptr; }
    const osg::Vec2f& startPoint() const { return m_startPoint; }
    const osg::Vec2f& lastPoint() const { return m_lastPoint; }

protected:
    void startImplementation(const osg::Vec2f& point) override;
    void updateImplementation(const osg::Vec2f& point) override { m_lastPoint = point; }

private:
    osg::Vec2f m_startPoint;
    osg::Vec2f m_lastPoint;
};

class DrawRectangle : public DrawLineFigure
{
    Q_OBJECT
public:
    using DrawLineFigure::DrawLineFigure;

protected:
    void startImplementation(const osg::Vec2f& point) override;
    void updateImplementation(const osg::Vec2f& point) override;

private:
    osg::Vec2f m_firstCorner;
};

class DrawLasso : public DrawLineFigure
{
    Q_OBJECT
public:
    using DrawLineFigure::DrawLineFigure;

protected:
    void startImplementation(const osg::Vec2f& point) override;
    void updateImplementation(const osg::Vec2f& point) override;
};

// A polygon of clicks; a double click ends it.
class DrawMultiSegment : public DrawLineFigure
{
    Q_OBJECT
public:
    using DrawLineFigure::DrawLineFigure;
    bool startDraw(const osg::Vec2f& point) override;
    bool finishDraw() override;
    bool doubleClicked(osgGA::GUIEventAdapter::MouseButtonMask button,
                       const osg::Vec2f& point) override;
    bool move(const osg::Vec2f& point) override;

protected:
    void startImplementation(const osg::Vec2f& point) override;
    void updateImplementation(const osg::Vec2f& point) override;
    void cancelImplementation() override;

private:
    int pointCount();
    bool m_finishRequested = false;
};

// Discs stamped along the stroke, one transform (scale and translation) per stamp.
class DrawBrush : public DrawObject
{
    Q_OBJECT
public:
    static constexpr float kMinRadius = 4.0f;
    static constexpr float kMaxRadius = 200.0f;
    static constexpr float kScrowStep = 5.0f;
    static constexpr int kAcceptedModKeyMask = 3;

    explicit DrawBrush(osg::Group* parentGroup = nullptr, QObject* parent = nullptr);
    float getRadius() const;
    bool setRadius(float radius);
    bool scrowUp() override;
    bool scrowDown() override;
    bool move(const osg::Vec2f& point) override;
    osg::Node* createDrawNode() override;

signals:
    void radiusChanged();

protected:
    void enterImplementation(const osg::Vec2f& point) override;
    void exitImplementation() override { deleteDrawNodeInScene(); }
    void startImplementation(const osg::Vec2f& point) override { place(point); }
    void updateImplementation(const osg::Vec2f& point) override;
    void cancelImplementation() override;
    void finishImplementation() override { cancelImplementation(); }
    void switchColor() override;

private:
    void place(const osg::Vec2f& point);
    static osg::Matrixd& lastUsedMatrix();
    float m_pixelRatio = 1.0f;
};

// One disc that follows the mouse; a double click arms the finish.
class DrawCylinder : public DrawObject
{
    Q_OBJECT
public:
    static constexpr float kMinRadius = 4.0f;
    static constexpr float kMaxRadius = 200.0f;
    static constexpr float kScrowStep = 5.0f;
    static constexpr int kAcceptedModKeyMask = 3;

    explicit DrawCylinder(osg::Group* parentGroup = nullptr, QObject* parent = nullptr);
    float getRadius() const { return m_radius; }
    bool setRadius(float radius);
    bool startDraw(const osg::Vec2f& point) override;
    bool updateDraw(const osg::Vec2f& point) override;
    bool finishDraw() override;
    bool doubleClicked(osgGA::GUIEventAdapter::MouseButtonMask button,
                       const osg::Vec2f& point) override;
    bool scrowUp() override;
    bool scrowDown() override;
    bool move(const osg::Vec2f& point) override;
    osg::Node* createDrawNode() override;

signals:
    void radiusChanged();

protected:
    void enterImplementation(const osg::Vec2f& point) override;
    void exitImplementation() override { deleteDrawNodeInScene(); }
    void startImplementation(const osg::Vec2f& point) override { place(point); }
    void updateImplementation(const osg::Vec2f& point) override { place(point); }
    void switchColor() override;

private:
    void place(const osg::Vec2f& point);
    float m_pixelRatio = 1.0f;
    float m_radius = 50.0f;
};

// A sphere in the scene at the surface under the mouse. The depth under the mouse comes from the
// reader the host sets (the camera's mouse-depth callback); without one nothing is under it.
class DrawSphere : public DrawObject
{
    Q_OBJECT
public:
    static constexpr float kMinRadius = 0.5f;
    static constexpr float kMaxRadius = 30.0f;
    static constexpr float kScrowStep = 0.2f;
    static constexpr int kAcceptedModKeyMask = 3;
    using DepthReader = std::function<float(const osg::Vec2f& windowPoint)>;

    explicit DrawSphere(osg::Group* parentGroup = nullptr, QObject* parent = nullptr);
    void setDepthReader(DepthReader reader) { m_depthReader = std::move(reader); }
    float getRadius() const { return m_radius; }
    bool setRadius(float radius);
    bool valid() const { return m_valid; }
    bool scrowUp() override;
    bool scrowDown() override;
    bool move(const osg::Vec2f& point) override;
    osg::Node* createDrawNode() override;

signals:
    void radiusChanged();

protected:
    void enterImplementation(const osg::Vec2f& point) override;
    void exitImplementation() override { deleteDrawNodeInScene(); }
    void updateImplementation(const osg::Vec2f& point) override { place(point); }

private:
    void place(const osg::Vec2f& point);
    DepthReader m_depthReader;
    float m_radius = 3.0f;
    bool m_valid = false;
};

// Turns pointer and modifier events of a view into the draw protocol of its DrawObject.
// Event points are window pixels with rows from the bottom, clamped to the viewport.
// Render thread.
class DrawManipulator : public QObject, public osgGA::GUIEventHandler
{
    Q_OBJECT
public:
    using KeyCallback = void (*)(int key);

    explicit DrawManipulator(osgViewer::View* view, QObject* parent = nullptr);

    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;
    using osgGA::GUIEventHandler::handle;

    virtual void handleEnter(const osg::Vec2f& point);
    virtual void handleExit();
    virtual bool handleStart(const osg::Vec2f& point);
    virtual bool handleUpdate(osg::Vec2f point);
    virtual bool handleCancel();
    virtual bool handleFinish();
    virtual bool handleMove(const osg::Vec2f& point);
    virtual bool handleDoubleClick(osgGA::GUIEventAdapter::MouseButtonMask button,
                                   const osg::Vec2f& point);
    virtual bool handleScrowUp();
    virtual bool handleScrowDown();
    virtual void resetCameraMouseMove(osgGA::GUIActionAdapter& aa);

    void setEnable(bool enable);
    bool isEnable() const { return m_enable; }
    void resetState();
    // Only Shift and Control, left and right (mask within 15).
    bool setAcceptedModKeyMask(int mask);
    int acceptedModKeyMask() const { return m_acceptedModKeyMask; }
    bool isDrawing() const { return m_isDrawing; }
    bool isDrawMode() const { return m_isDrawMode; }
    int currentModKey() const { return m_curModKey; }
    void setDrawObject(const QSharedPointer<DrawObject>& object) { m_drawObject = object; }
    const QSharedPointer<DrawObject>& getDrawObject() const { return m_drawObject; }
    void setKeyCallback(KeyCallback callback) { m_keyCallback = callback; }
    osgViewer::View* view() const { return m_view; }

    // A camera that draws its children over the view in window pixels (rows from the bottom),
    // following the view's viewport; add it to the scene and give it to the draw objects.
    static osg::Camera* createOverlayCamera(osgViewer::View* view);

signals:
    void modKeySwitched();

protected:
    void updateKeyState(int modKeyMask, bool& switched, bool& entered, bool& exited);

    bool m_enable = true;
    bool m_handleKeys = true;
    bool m_isDrawing = false;
    bool m_isDrawMode = false;
    int m_curModKey = 0;
    int m_acceptedModKeyMask = 0;
    osgViewer::View* m_view = nullptr;
    QSharedPointer<DrawObject> m_drawObject;
    KeyCallback m_keyCallback = nullptr;
};

} // namespace Orvane
} // namespace Vorna
