#include "customize_manipulator.h"

#include "camera_ctrl/depth_callbacks.h"

#include <limits>
#include <osg/Geode>
#include <osg/ShapeDrawable>

int CustomizeManipulator::m_maximumDistanceFlagIndex = allocateRelativeFlag();

CustomizeManipulator::CustomizeManipulator(int)
    : osgGA::OrbitManipulator(UPDATE_MODEL_SIZE | PROCESS_MOUSE_WHEEL),
      _maximumDistance(std::numeric_limits<double>::max())
{
    setVerticalAxisFixed(false);
    setAllowThrow(false);
    setAutoComputeHomePosition(true);
    setMinimumDistance(0.0, false);
    setMaximumDistance(std::numeric_limits<double>::max(), false);
    m_rotateSensitivity = 1.5f;

    using GA = osgGA::GUIEventAdapter;
    const int alt = GA::MODKEY_ALT;   // 48, either Alt
    const int meta = GA::MODKEY_META; // 192, either Meta
    const int left = GA::LEFT_MOUSE_BUTTON;
    const int right = GA::RIGHT_MOUSE_BUTTON;
    if (m_interactOpPlatform) {
        m_deviceActionOperators[{0, right}] = Rotate;
        m_deviceActionOperators[{0, left | right}] = Move;
    } else {
        m_deviceActionOperators[{alt, left}] = Rotate;
        m_deviceActionOperators[{0, right}] = Move;
    }
    m_deviceActionOperators[{meta, right}] = Move;
    m_deviceActionOperators[{meta, left}] = Move;
    m_deviceActionOperators[{0, left}] = Rotate;
    m_deviceActionOperators[{GA::MODKEY_SHIFT, left}] = None;

    initRotateCenterSphere();
}

CustomizeManipulator::~CustomizeManipulator() = default;

void CustomizeManipulator::initRotateCenterSphere()
{
    m_rotateCenterGroup = new osg::Group;
    m_rotateCenterGroup->setName("rotate_center_sphere");
    m_rotateCenterTransform = new osg::MatrixTransform;
    auto* sphere = new osg::ShapeDrawable(new osg::Sphere(osg::Vec3(), 1.0f));
    sphere->setColor(osg::Vec4(1.0f, 1.0f, 0.0f, 1.0f));
    auto* geode = new osg::Geode;
    geode->addDrawable(sphere);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::ON);
    geode->getOrCreateStateSet()->setMode(GL_DEPTH_TEST, osg::StateAttribute::ON);
    m_rotateCenterTransform->addChild(geode);
    m_rotateCenterGroup->addChild(m_rotateCenterTransform);
}

void CustomizeManipulator::setOSGViewer(osgViewer::View* view)
{
    if (view == m_pViewer)
        return;
    m_pViewer = view;
    if (!view)
        return;
    osg::Camera* camera = view->getCamera();
    camera->addPostDrawCallback(new ReadMousePosPostDrawCallback);
    camera->addPostDrawCallback(new ScreenPostDrawCallback(camera));
    camera->addPostDrawCallback(new SelectDepthCallback);
}

void CustomizeManipulator::setDeviceActionOperatorType(const DeviceAction& action,
                                                       CCMOperatorType type)
{
    m_deviceActionOperators[action] = type;
}

CustomizeManipulator::CCMOperatorType
CustomizeManipulator::operatorOf(const DeviceAction& action) const
{
    auto it = m_deviceActionOperators.find(action);
    return it == m_deviceActionOperators.end() ? None : it->second;
}

bool CustomizeManipulator::getIsMoving() const
{
    auto it = m_deviceActionOperators.find({0, osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON});
    return it != m_deviceActionOperators.end() && it->second == Move;
}

void CustomizeManipulator::setRotateMode(bool useBaseTrackball, float sensitivity)
{
    m_useBaseTrackball = useBaseTrackball;
    m_rotateSensitivity = sensitivity;
}

void CustomizeManipulator::setMaximumDistance(double distance, bool relativeToModelSize)
{
    _maximumDistance = distance;
    setRelativeFlag(m_maximumDistanceFlagIndex, relativeToModelSize);
}

double CustomizeManipulator::getMaximumDistance(bool* relativeToModelSize) const
{
    if (relativeToModelSize)
        *relativeToModelSize = getRelativeFlag(m_maximumDistanceFlagIndex);
    return _maximumDistance;
}
