#pragma once

#include <map>
#include <osg/Camera>
#include <osg/Geode>
#include <osg/MatrixTransform>
#include <osg/Quat>
#include <osg/Switch>
#include <osg/Vec3f>
#include <osg/Vec4f>
#include <osg/View>
#include <string>

namespace Vorna {
namespace Orvane {

// The orientation gizmo in a corner of a view: axes and a cube whose six faces, twelve edges
// and eight corners are clickable view directions, plus a home button. It takes the rotation
// of the main camera (never its position) and lays itself out from the main viewport on every
// cull, so nothing has to call it when the camera moves. Render thread (cull and event).
class ViewDatum : public osg::Camera
{
public:
    // The user data of every clickable geode and of its label.
    class PlaneInfo : public osg::Referenced
    {
    public:
        bool highlighted = false;
        // Outward, in the gizmo's own frame (y up, front towards +z).
        osg::Vec3f direction;
        // The camera rotation, in that frame, that looks at this piece.
        osg::Quat rotation;
    };

    ViewDatum(osg::View* view, float dpiScale, float scale);

    void init(bool showCube, bool alignLeft, bool showHome);
    osg::MatrixTransform* createViewDatum();

    // Side of the square gizmo in pixels, from the main viewport.
    float getWidth() const;
    // The side at the reference size of 1920 x 1080.
    float getWidthConst() const;
    float getX();
    float getY();
    float getX(float x, float viewportWidth, float width, bool left);
    float getY(float y);

    void traverse(osg::NodeVisitor& nv) override;
    // The gizmo is no child of this camera, so its GL objects are passed on by hand.
    void resizeGLObjectBuffers(unsigned int maxSize) override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

    void setScale(float scale) { m_scale = scale; }
    // Before init: the face words and the X, Y, Z labels (on by default).
    void setShowLabels(bool show) { m_showLabels = show; }
    void setViewDatumMargin(float x, float y)
    {
        m_marginX = x;
        m_marginY = y;
    }
    static void setBlendMode(osg::StateSet* stateSet);
    void updateHomeBtn();
    void getHomeButtonPos(float& x, float& y) const;

    osg::Camera* getHomeCamera() const { return m_homeCamera.get(); }
    const std::map<std::string, osg::Geode*>& getPlanes() const { return m_planes; }
    bool getIsFrontZDirUp() const { return m_isFrontZDirUp; }
    osg::MatrixTransform* getRoot() const { return m_root.get(); }

    static osg::Vec3f getDefaultPlaneColor() { return osg::Vec3f(0.7f, 0.7f, 0.7f); }
    static osg::Vec3f getHightLightPlaneColor() { return osg::Vec3f(0.24f, 0.64f, 1.0f); }
    static osg::Vec3f getDefaultHomeColor() { return osg::Vec3f(1.0f, 1.0f, 1.0f); }
    static osg::Vec4f getDefaultTextColor() { return osg::Vec4f(0.3f, 0.3f, 0.3f, 1.0f); }
    static osg::Vec4f getHightLightTextColor() { return osg::Vec4f(1.0f, 1.0f, 1.0f, 1.0f); }
    static unsigned int getCubePlaneMask() { return 0x10; }

protected:
    ~ViewDatum() override;

private:
    void createBox(osg::Group* parent, const osg::Vec3f& centre, float size);
    void createPlane(osg::Switch* sw, const osg::Vec3f* vertices, const int* indices,
                     const std::string& name, const osg::Vec3f& direction, const std::string& text);
    void createAllPlane(const osg::Vec3f* vertices);
    void createAllAdjacentPlane(const osg::Vec3f& centre, float h);
    void createAllAdjacentPlaneXAxis(const osg::Vec3f& centre, float h);
    void createAllAdjacentPlaneYAxis(const osg::Vec3f& centre, float h);
    void createAllAdjacentPlaneZAxis(const osg::Vec3f& centre, float h);
    void createAdjacentPlane(const osg::Vec3f& centre, float h, const osg::Vec3f& a,
                             const osg::Vec3f& b, const std::string& name);
    void createAllCornerPlane(const osg::Vec3f* vertices, const osg::Vec3f& centre, float h);
    void createCornertPlane(const osg::Vec3f& centre, float h, const osg::Vec3f& signs,
                            const std::string& name);
    // One clickable geode from triangles (three vertices each).
    osg::Geode* addPiece(const std::vector<osg::Vec3f>& triangles, const std::string& name,
                         const osg::Vec3f& direction);
    osg::Geode* createLineFrame(float size, const osg::Vec3f& centre);
    void createHome(osg::Switch* sw, float size, const osg::Vec3f& centre);
    osg::Node* createAxisWithArrow(const osg::Vec3f& from, const osg::Vec3f& to,
                                   const osg::Vec4f& color);
    osg::Node* createLabel(const std::string& text, const osg::Vec3f& position,
                           const osg::Vec4f& color, int size);

    osg::View* m_view;
    float m_scale;
    osg::ref_ptr<osg::MatrixTransform> m_root;
    osg::ref_ptr<osg::Switch> m_cubeSwitch;
    osg::ref_ptr<osg::MatrixTransform> m_homeTransform;
    osg::ref_ptr<osg::Camera> m_homeCamera;
    osg::ref_ptr<osg::Geometry> m_homeQuad;
    std::map<std::string, osg::Geode*> m_planes;
    float m_planeInset = 0.7f;
    float m_lastWidth = 0.0f;
    bool m_isFrontZDirUp = true;
    bool m_showCube = true;
    bool m_alignLeft = false;
    bool m_showHome = true;
    float m_marginX = 2.0f;
    float m_marginY = 2.0f;
    float m_dpiScale;
    float m_homeSize = 12.0f;
    bool m_showLabels = true;
};

} // namespace Orvane
} // namespace Vorna
