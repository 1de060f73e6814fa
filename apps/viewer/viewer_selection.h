#pragma once

#include <QObject>
#include <QString>
#include <osg/Array>
#include <osg/Geometry>
#include <osg/Vec2d>
#include <osg/observer_ptr>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class UndoHistory;

namespace osgViewer {
class View;
}

namespace Vorna {
namespace Orvane {
class CanvasBase;
class RenderInfo;
} // namespace Orvane
} // namespace Vorna

// Selection by sketching over the models: hold Shift (or turn on the toolbar's Select) and draw
// a rectangle, lasso, polygon or brush; with Ctrl the selection reaches through the surface,
// else only what is visible is taken. Delete marks the selection deleted (hidden), Esc (from
// QML) clears it; each selection, deletion and clearing is a step of the undo history.
// Invokables run on the GUI thread and post their work to the canvas's render thread, where
// the event handler and every state change live.
class ViewerSelection : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int selectedCount READ selectedCount NOTIFY selectedCountChanged)
    Q_PROPERTY(QString tool READ tool NOTIFY toolChanged)
    Q_PROPERTY(bool selecting READ selecting NOTIFY selectingChanged)
public:
    // State value of a selected vertex and the colour-index row it shows.
    static constexpr int kSelectedState = 1;
    static const osg::Vec3f kSelectedColor;

    explicit ViewerSelection(UndoHistory* history, QObject* parent = nullptr);
    ~ViewerSelection() override;

    // Adds the event handler to the main view of `canvas`; until then the invokables do
    // nothing.
    void install(Vorna::Orvane::CanvasBase* canvas);

    int selectedCount() const { return m_selectedCount; }
    QString tool() const { return m_tool; }
    bool selecting() const { return m_selecting; }

    // "rectangle", "lasso", "polygon" or "brush".
    Q_INVOKABLE void setTool(const QString& name);
    // On: figures are drawn without holding Shift.
    Q_INVOKABLE void setSelecting(bool on);
    Q_INVOKABLE void clearSelection();
    Q_INVOKABLE void deleteSelected();

    // Render thread. Selects inside a polygon of window pixels (rows from the bottom) as a
    // finished figure would; true when a state changed.
    bool selectPolygon(Vorna::Orvane::RenderInfo& info, const std::vector<osg::Vec2d>& polygon,
                       bool through);
    bool selectMask(osgViewer::View* view, const std::vector<unsigned char>& mask, bool through);
    bool clearNow();
    bool deleteNow();
    // The selectable geometries found under the model group, with their state arrays.
    struct Target {
        osg::observer_ptr<osg::Geometry> geometry;
        osg::ref_ptr<osg::ByteArray> states;
        bool points = false;
    };
    const std::vector<Target>& targets() const { return m_targets; }
    void collectTargets(osgViewer::View* view);
    // The count of selected vertices as the render thread last saw it.
    int selectedCountNow() const { return m_countNow; }

signals:
    void selectedCountChanged();
    void toolChanged();
    void selectingChanged();

private:
    class Handler;
    using StateSnapshot = std::vector<std::vector<signed char>>;
    StateSnapshot snapshot() const;
    void restore(const StateSnapshot& states);
    void recordStep(const QString& name, const StateSnapshot& before);
    bool replaceState(int from, int to, const QString& name);
    void publishCount();

    void post(std::function<void()> work);

    Vorna::Orvane::CanvasBase* m_canvas = nullptr;
    UndoHistory* m_history;
    std::vector<Target> m_targets;
    osg::ref_ptr<Handler> m_handler;
    int m_selectedCount = 0;
    std::atomic<int> m_countNow{0};
    QString m_tool = "rectangle";
    bool m_selecting = false;
};
