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
}
