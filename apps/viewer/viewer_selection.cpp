#include "viewer_selection.h"

#include "undo_history.h"

#include "canvas3d_drawable.h"
#include "canvas3d_shadermanager.h"
#include "canvas3d_view.h"
#include "canvas_base.h"
#include "depth_callbacks.h"
#include "drawselect.h"
#include "figure_mask.h"
#include "metal_select.h"
#include "orvane_operations.h"
#include "orvane_singleton.h"
#include "render_info.h"
#include "selectDepthCallback.h"

#include <QMetaObject>
#include <osg/NodeVisitor>
#include <osg/VertexArrayState>
#include <osgGA/GUIEventHandler>
#include <osgViewer/View>

#include <future>
#include <typeinfo>

using namespace Vorna::Orvane;
using GA = osgGA::GUIEventAdapter;

const osg::Vec3f ViewerSelection::kSelectedColor(1.0f, 0.55f, 0.0f);

namespace {

MetalSelect& selector()
{
    static MetalSelect* select = [] {
        auto* s = new MetalSelect;
        s->init();
        return s;
    }();
    return *select;
}

SelectDepthCallback* depthCallback(osgViewer::View* view)
{
    return view ? findPostDrawCallback<SelectDepthCallback>(view->getCamera()) : nullptr;
}

bool isPoints(const osg::Geometry& geometry)
{
    for (unsigned int i = 0; i < geometry.getNumPrimitiveSets(); ++i)
        if (geometry.getPrimitiveSet(i)->getMode() != GL_POINTS)
            return false;
    return geometry.getNumPrimitiveSets() > 0;
}

bool hasIndices(const osg::Geometry& geometry)
{
    for (unsigned int i = 0; i < geometry.getNumPrimitiveSets(); ++i)
        if (geometry.getPrimitiveSet(i)->getDrawElements())
            return true;
    return false;
}

// A geometry's vertex array object sets its arrays once: after arrays were added or rewritten
// it must set them again, or it draws from the old ones.
void resetArrays(osg::Geometry* geometry)
{
    osg::VertexArrayStateList& states = geometry->getVertexArrayStateList();
    for (unsigned int i = 0; i < states.size(); ++i)
        if (states[i])
            states[i]->setRequiresSetArrays(true);
}

class CollectGeometries : public osg::NodeVisitor
{
public:
    CollectGeometries() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
    void apply(osg::Geometry& geometry) override
    {
        // Drawables with GL of their own (the live cloud) keep their own selection.
        if (typeid(geometry) == typeid(osg::Geometry) &&
            dynamic_cast<osg::Vec3Array*>(geometry.getVertexArray()))
            found.push_back(&geometry);
    }
    std::vector<osg::Geometry*> found;
};

} // namespace

// The draw tool on the render thread: figures become masks, masks selections.
class ViewerSelection::Handler : public osgGA::GUIEventHandler
{
public:
    explicit Handler(ViewerSelection* owner) : m_owner(owner) {}

    bool handle(const GA& ea, osgGA::GUIActionAdapter& aa) override
    {
        if (!m_manipulator) {
            auto* view = dynamic_cast<osgViewer::View*>(&aa);
            if (!view)
                return false;
            setUp(view);
        }
        if (ea.getEventType() == GA::KEYDOWN && ea.getKey() == GA::KEY_Delete) {
            m_owner->deleteNow();
            return true;
        }
        return m_manipulator->handle(ea, aa);
    }

    void setTool(const QString& name)
    {
        m_toolName = name;
        if (!m_manipulator)
            return;
        m_manipulator->resetState();
        DrawObject* object = nullptr;
        if (name == "lasso")
            object = new DrawLasso(m_overlay.get());
        else if (name == "polygon")
            object = new DrawMultiSegment(m_overlay.get());
        else if (name == "brush")
            object = new DrawBrush(m_overlay.get());
        else
            object = new DrawRectangle(m_overlay.get());
        QObject::connect(object, &DrawObject::entered, [this] { readDepth(true); });
        QObject::connect(object, &DrawObject::exited, [this] { readDepth(false); });
        QObject::connect(object, &DrawObject::finished, [this, object] { finished(object); });
        m_manipulator->setDrawObject(QSharedPointer<DrawObject>(object));
    }

    void setSelecting(bool on)
    {
        m_selecting = on;
        if (m_manipulator) {
            m_manipulator->resetState();
            m_manipulator->setAcceptedModKeyMask(on ? 0 : GA::MODKEY_SHIFT);
        }
    }

    void readDepth(bool on)
    {
        if (SelectDepthCallback* depth = depthCallback(m_view.get()))
            depth->setIsReadDepth(on);
    }

private:
    void setUp(osgViewer::View* view)
    {
        m_view = view;
        m_manipulator.reset(new DrawManipulator(view));
        m_overlay = DrawManipulator::createOverlayCamera(view);
        if (view->getSceneData() && view->getSceneData()->asGroup())
            view->getSceneData()->asGroup()->addChild(m_overlay.get());
        setSelecting(m_selecting);
        setTool(m_toolName);
    }

    void finished(DrawObject* object)
    {
        const osg::Viewport* vp = m_view->getCamera()->getViewport();
        if (!vp)
            return;
        std::vector<unsigned char> mask;
        FigureMask::fromDrawObject(object, osg::Vec4i(vp->x(), vp->y(), vp->width(), vp->height()),
                                   mask);
        const bool through = (object->getModKeyMask() & GA::MODKEY_CTRL) != 0;
        m_owner->selectMask(m_view.get(), mask, through);
    }

    ViewerSelection* m_owner;
    osg::observer_ptr<osgViewer::View> m_view;
    std::unique_ptr<DrawManipulator> m_manipulator;
    osg::ref_ptr<osg::Camera> m_overlay;
    QString m_toolName = "rectangle";
    bool m_selecting = false;
};

ViewerSelection::ViewerSelection(UndoHistory* history, QObject* parent)
    : QObject(parent), m_history(history), m_handler(new Handler(this))
{
}

ViewerSelection::~ViewerSelection() = default;

void ViewerSelection::install(CanvasBase* canvas)
{
    m_canvas = canvas;
    if (m_canvas)
        m_canvas->addOperation(new AddEventHandler(m_handler.get()));
}

void ViewerSelection::post(std::function<void()> work)
{
    if (m_canvas)
        m_canvas->addOperation(new LambdaOperation([work](RenderInfo&) { work(); }));
}

void ViewerSelection::setTool(const QString& name)
{
    if (name == m_tool)
        return;
    m_tool = name;
    emit toolChanged();
    osg::ref_ptr<Handler> handler = m_handler;
    post([handler, name] { handler->setTool(name); });
}

void ViewerSelection::setSelecting(bool on)
{
    if (on == m_selecting)
        return;
    m_selecting = on;
    emit selectingChanged();
    osg::ref_ptr<Handler> handler = m_handler;
    post([handler, on] { handler->setSelecting(on); });
}

void ViewerSelection::clearSelection()
{
    post([this] { clearNow(); });
}

void ViewerSelection::deleteSelected()
{
    post([this] { deleteNow(); });
}

void ViewerSelection::collectTargets(osgViewer::View* view)
{
    osg::Group* model = ViewMgr::getModel(view);
    if (!model)
        return;
    CollectGeometries collect;
    model->accept(collect);
    const std::size_t known = m_targets.size();
    ShaderManager* shaders = OrvaneSingleton::instance()->getShaderMgr();
    for (osg::Geometry* geometry : collect.found) {
        bool seen = false;
        for (const Target& t : m_targets)
            seen = seen || t.geometry.get() == geometry;
        if (seen)
            continue;
        auto* vertices = static_cast<osg::Vec3Array*>(geometry->getVertexArray());
        Target target;
        target.geometry = geometry;
        target.points = isPoints(*geometry);
        target.states =
            geometry->getNumVertexAttribArrays() > StateSlot
                ? dynamic_cast<osg::ByteArray*>(geometry->getVertexAttribArray(StateSlot))
                : nullptr;
        if (!target.states || target.states->size() != vertices->size()) {
            target.states = new osg::ByteArray(vertices->size());
            target.states->setPreserveDataType(true);
            target.states->setVertexBufferObject(new osg::VertexBufferObject);
            geometry->setVertexAttribArray(StateSlot, target.states.get(),
                                           osg::Array::BIND_PER_VERTEX);
        }
        // The edit programs read the state and show its colour-index row.
        osg::StateSet* ss = geometry->getOrCreateStateSet();
        auto* program = dynamic_cast<osg::Program*>(ss->getAttribute(osg::StateAttribute::PROGRAM));
        const osg::Array* colors = geometry->getColorArray();
        const bool vertexColors = colors && colors->getBinding() == osg::Array::BIND_PER_VERTEX &&
                                  colors->getNumElements() == vertices->size();
        if (target.points) {
            geometry->setVertexAttribArray(PositionSlot, vertices, osg::Array::BIND_PER_VERTEX);
            if (geometry->getNormalArray() &&
                geometry->getNormalArray()->getBinding() == osg::Array::BIND_PER_VERTEX)
                geometry->setVertexAttribArray(NormalSlot, geometry->getNormalArray(),
                                               osg::Array::BIND_PER_VERTEX);
            if (vertexColors)
                geometry->setVertexAttribArray(ColorSlot, geometry->getColorArray(),
                                               osg::Array::BIND_PER_VERTEX);
            ss->setAttributeAndModes(shaders->getShader(vertexColors ? g_editPointColorProgramStr
                                                                     : g_editPointProgramStr));
            ss->setMode(GL_PROGRAM_POINT_SIZE, osg::StateAttribute::ON);
        } else if (program == shaders->getShader(g_meshProgramStr)) {
            ss->setAttributeAndModes(shaders->getShader(g_editMeshProgramStr));
        } else if (program == shaders->getShader(g_meshColorProgramStr)) {
            ss->setAttributeAndModes(shaders->getShader(g_editMeshColorProgramStr));
        }
        // Arrays and program changed under a drawn geometry: its vertex array objects are
        // made again.
        geometry->releaseGLObjects();
        geometry->getVertexArrayStateList().clear();
        geometry->dirtyGLObjects();
        m_targets.push_back(target);
    }
    if (m_targets.size() == known)
        return;
    osg::ref_ptr<osg::Vec3Array> rows = new osg::Vec3Array;
    rows->push_back(osg::Vec3f());
    rows->push_back(kSelectedColor);
    Mesh::colorIndex(model, rows.get());
}

bool ViewerSelection::selectPolygon(RenderInfo& info, const std::vector<osg::Vec2d>& polygon,
                                    bool through)
{
    osgViewer::View* view = info.mainView();
    const osg::Viewport* vp = view ? view->getCamera()->getViewport() : nullptr;
    if (!vp)
        return false;
    const osg::Vec4i viewport(vp->x(), vp->y(), vp->width(), vp->height());
    std::vector<unsigned char> mask;
    FigureMask::reset(viewport, mask);
    FigureMask::addPolygon(polygon, viewport, mask);
    return selectMask(view, mask, through);
}

bool ViewerSelection::selectMask(osgViewer::View* view, const std::vector<unsigned char>& mask,
                                 bool through)
{
    if (!view || !view->getCamera()->getViewport())
        return false;
    // Models added since the last selection join it.
    collectTargets(view);
    osg::Camera* camera = view->getCamera();
    const osg::Viewport* vp = camera->getViewport();
    const osg::Vec4i viewport(vp->x(), vp->y(), vp->width(), vp->height());
    if (mask.size() != static_cast<std::size_t>(viewport.z()) * viewport.w())
        return false;

    // Depth of the last frame drawn; without one of the viewport's size, through it is.
    osg::ref_ptr<osg::FloatArray> depth;
    if (!through) {
        SelectDepthCallback* callback = depthCallback(view);
        osg::Image* image = callback ? callback->getDepth() : nullptr;
        if (image && image->s() == viewport.z() && image->t() == viewport.w() &&
            image->getDataType() == GL_FLOAT) {
            const auto* data = reinterpret_cast<const float*>(image->data());
            depth = new osg::FloatArray(data, data + std::size_t(viewport.z()) * viewport.w());
        } else {
            through = true;
        }
    }

    const StateSnapshot before = snapshot();
    for (Target& target : m_targets) {
        osg::ref_ptr<osg::Geometry> geometry;
        if (!target.geometry.lock(geometry))
            continue;
        bool visible = true;
        osg::Matrixd model;
        MetalSelect::getState(view, geometry.get(), visible, model);
        if (!visible)
            continue;
        auto* positions = static_cast<osg::Vec3Array*>(geometry->getVertexArray());
        osg::ref_ptr<osg::ByteArray> current = new osg::ByteArray(*target.states);
        osg::ref_ptr<osg::ByteArray> result = new osg::ByteArray(*target.states);
        osg::ref_ptr<osg::ByteArray> initial = new osg::ByteArray(target.states->size());
        SelectParam param;
        param.isThrough = through;
        param.positions = positions;
        param.selectState = result.get();
        param.initialState = initial.get();
        param.currentState = current.get();
        param.selectArea = mask.data();
        param.depth = depth.get();
        const osg::Matrixd modelView = model * camera->getViewMatrix();
        param.matModelView = osg::Matrixf(modelView);
        param.matProj = osg::Matrixf(camera->getProjectionMatrix());
        param.matModelViewProj = osg::Matrixf(modelView * camera->getProjectionMatrix());
        param.viewport = viewport;
        param.vertexCount = static_cast<std::uint32_t>(positions->size());
        param.dataType = target.points ? 2 : 1;
        param.hasIndices = hasIndices(*geometry);
        param.faceCount = param.hasIndices ? 0 : param.vertexCount / 3;
        param.selectStateValue = kSelectedState;

        auto promise = std::make_shared<std::promise<std::vector<signed char>>>();
        std::future<std::vector<signed char>> done = promise->get_future();
        selector().SelectProcess(param, [promise](osg::ByteArray* states) {
            promise->set_value(std::vector<signed char>(states->begin(), states->end()));
        });
        const std::vector<signed char> states = done.get();
        if (states.size() == target.states->size()) {
            std::copy(states.begin(), states.end(), target.states->begin());
            target.states->dirty();
            resetArrays(geometry.get());
        }
    }
    if (snapshot() == before)
        return false;
    recordStep("selection", before);
    return true;
}

ViewerSelection::StateSnapshot ViewerSelection::snapshot() const
{
    StateSnapshot states;
    for (const Target& target : m_targets)
        states.emplace_back(target.states->begin(), target.states->end());
    return states;
}

void ViewerSelection::restore(const StateSnapshot& states)
{
    for (std::size_t i = 0; i < states.size() && i < m_targets.size(); ++i) {
        osg::ByteArray& target = *m_targets[i].states;
        if (states[i].size() != target.size())
            continue;
        std::copy(states[i].begin(), states[i].end(), target.begin());
        target.dirty();
        osg::ref_ptr<osg::Geometry> geometry;
        if (m_targets[i].geometry.lock(geometry))
            resetArrays(geometry.get());
    }
    publishCount();
}

void ViewerSelection::recordStep(const QString& name, const StateSnapshot& before)
{
    const StateSnapshot after = snapshot();
    publishCount();
    if (!m_history)
        return;
    // Both closures run on the render thread, where the history is replayed.
    m_history->push(
        name, [this, before] { restore(before); }, [this, after] { restore(after); });
}

bool ViewerSelection::replaceState(int from, int to, const QString& name)
{
    const StateSnapshot before = snapshot();
    bool changed = false;
    for (Target& target : m_targets) {
        bool touched = false;
        for (signed char& s : *target.states)
            if (s == from) {
                s = static_cast<signed char>(to);
                touched = true;
            }
        osg::ref_ptr<osg::Geometry> geometry;
        if (touched) {
            target.states->dirty();
            if (target.geometry.lock(geometry))
                resetArrays(geometry.get());
        }
        changed = changed || touched;
    }
    if (changed)
        recordStep(name, before);
    return changed;
}

bool ViewerSelection::clearNow()
{
    return replaceState(kSelectedState, 0, "clear selection");
}

bool ViewerSelection::deleteNow()
{
    return replaceState(kSelectedState, -1, "delete");
}

void ViewerSelection::publishCount()
{
    int count = 0;
    for (const Target& target : m_targets)
        for (signed char s : *target.states)
            count += s == kSelectedState;
    m_countNow = count;
    QMetaObject::invokeMethod(
        this,
        [this, count] {
            if (count == m_selectedCount)
                return;
            m_selectedCount = count;
            emit selectedCountChanged();
        },
        Qt::QueuedConnection);
}
