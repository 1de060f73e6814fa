import QtQuick 2.15

// Three values under one name, such as a colour or a direction.
Column {
    id: root
    property string label: ""
    property vector3d value: Qt.vector3d(0, 0, 0)
    property real from: 0
    property real to: 1
    property var names: ["x", "y", "z"]
    property bool quiet: false
    signal edited(vector3d value)

    function restore(v) {
        quiet = true
        xs.restore(v.x)
        ys.restore(v.y)
        zs.restore(v.z)
        value = v
        quiet = false
    }

    function update() {
        if (quiet)
            return
        value = Qt.vector3d(xs.value, ys.value, zs.value)
        edited(value)
    }

    spacing: 0
    Text {
        text: root.label
        font.pixelSize: 12
        font.bold: true
        color: "#303030"
    }
    AdjustValue {
        id: xs
        objectName: root.objectName + "_x"
        label: "  " + root.names[0]
        from: root.from
        to: root.to
        value: root.value.x
        onEdited: root.update()
    }
    AdjustValue {
        id: ys
        objectName: root.objectName + "_y"
        label: "  " + root.names[1]
        from: root.from
        to: root.to
        value: root.value.y
        onEdited: root.update()
    }
    AdjustValue {
        id: zs
        objectName: root.objectName + "_z"
        label: "  " + root.names[2]
        from: root.from
        to: root.to
        value: root.value.z
        onEdited: root.update()
    }
}
