import QtQuick 2.15
import QtQuick.Window 2.15
import Vorna.Orvane 1.0

Window {
    id: window
    width: viewerWidth
    height: viewerHeight
    visible: true
    title: "Orvane viewer"

    Canvas3DItem {
        id: canvas
        objectName: "canvas"
        anchors.fill: parent
        clearColor: "#20242c"
    }

    Rectangle {
        anchors { left: parent.left; bottom: parent.bottom; margins: 8 }
        width: status.implicitWidth + 16
        height: status.implicitHeight + 8
        radius: 4
        color: "#a0000000"
        Text {
            id: status
            anchors.centerIn: parent
            color: "white"
            text: viewerStatus + (scan ? "\n" + scan.progress : "") +
                  (pointBudget && pointBudget.text ? "\n" + pointBudget.text : "")
        }
    }

    // Selection: tools, a toggle to draw without Shift, and the count of what is selected.
    Shortcut {
        sequence: "Esc"
        onActivated: selection.clearSelection()
    }
    Row {
        objectName: "selectionBar"
        anchors { left: parent.left; top: parent.top; margins: 8 }
        spacing: 4
        Repeater {
            model: [["Select", "select"], ["Rect", "rectangle"], ["Lasso", "lasso"],
                    ["Polygon", "polygon"], ["Brush", "brush"], ["Delete", "delete"],
                    ["Clear", "clear"]]
            Rectangle {
                readonly property bool lit: modelData[1] === "select" ? selection.selecting
                                                                      : selection.tool === modelData[1]
                width: label.implicitWidth + 14
                height: label.implicitHeight + 8
                radius: 4
                color: lit ? "#c0ff8c00" : "#a0000000"
                Text {
                    id: label
                    anchors.centerIn: parent
                    color: "white"
                    text: modelData[0]
                }
                MouseArea {
                    anchors.fill: parent
                    onClicked: {
                        var what = modelData[1]
                        if (what === "select")
                            selection.setSelecting(!selection.selecting)
                        else if (what === "delete")
                            selection.deleteSelected()
                        else if (what === "clear")
                            selection.clearSelection()
                        else
                            selection.setTool(what)
                    }
                }
            }
        }
        Text {
            objectName: "selectedCount"
            anchors.verticalCenter: parent.verticalCenter
            color: "white"
            text: "  selected: " + selection.selectedCount
        }
    }
}
