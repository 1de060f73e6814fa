#pragma once

#include <QString>
#include <cstddef>
#include <deque>
#include <functional>

// The viewer's undoable steps (selections, deletions, moves). Used on the render thread only:
// every step changes the scene, and the keys that replay them arrive there.
class UndoHistory
{
public:
    static constexpr std::size_t kDefaultDepth = 100;

    explicit UndoHistory(std::size_t depth = kDefaultDepth) : m_depth(depth) {}

    // Records a step that has just been done; forgets what could be redone and, past the
    // depth, the oldest step.
    void push(const QString& name, std::function<void()> undo, std::function<void()> redo);
    // Replays the latest step backwards (forwards); false when there is none.
    bool undo();
    bool redo();

    std::size_t undoCount() const { return m_done.size(); }
    std::size_t redoCount() const { return m_undone.size(); }
    QString nextUndoName() const { return m_done.empty() ? QString() : m_done.back().name; }

private:
    struct Step {
        QString name;
        std::function<void()> undo;
        std::function<void()> redo;
    };
    std::size_t m_depth;
    std::deque<Step> m_done;
    std::deque<Step> m_undone;
};
