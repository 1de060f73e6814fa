#pragma once

#include <osgGA/GUIEventHandler>

class UndoHistory;

// A press of `letter` without Ctrl or Alt; the canvas sends some letters lower-case and others
// upper-case, so both count.
bool isLetterPress(const osgGA::GUIEventAdapter& ea, char letter);

// The viewer's own keys, on the render thread: F fits, 2 to 7 turn to the named directions
// (front, back, left, right, top, bottom), O switches orthographic and perspective, M turns
// the built-in torus between the classic lights and the material model, Ctrl+Z undoes and
// Ctrl+Shift+Z redoes the last step of `history`.
class ViewerKeys : public osgGA::GUIEventHandler
{
public:
    explicit ViewerKeys(UndoHistory* history = nullptr) : m_history(history) {}
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

private:
    UndoHistory* m_history;
};
