// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Shapes

// One of the alert's line icons, drawn from its path on a 24-unit grid so that it takes any colour and stays sharp
// at any size. Decorative unless given an accessible name.
Item {
    id: icon

    property string name
    property real size: 18
    property color color: "white"

    readonly property var paths: ({
        "bell": "M12 3C8.7 3 6.5 5.5 6.5 9v4l-2 3.5h15l-2-3.5V9c0-3.5-2.2-6-5.5-6z"
                + "M10 19.5c.5 1.1 1.2 1.5 2 1.5s1.5-.4 2-1.5",
        "bell-slash": "M8.2 4.6C7.1 5.6 6.5 7.1 6.5 9v4l-2 3.5h12M17.5 12.5V9c0-3.5-2.2-6-5.5-6-.9 0-1.7.2-2.4.5"
                      + "M10 19.5c.5 1.1 1.2 1.5 2 1.5s1.5-.4 2-1.5M3.5 3.5l17 17",
        "repeat": "M4 11V9.5C4 7.6 5.6 6 7.5 6H19M16 3l3 3-3 3M20 13v1.5c0 1.9-1.6 3.5-3.5 3.5H5M8 21l-3-3 3-3",
        "clock": "M21 12a9 9 0 1 1-18 0a9 9 0 1 1 18 0zM12 7v5l3.5 2",
        "map-pin": "M12 21.5S5 15 5 9.8C5 5.9 8.1 3 12 3s7 2.9 7 6.8c0 5.2-7 11.7-7 11.7z"
                   + "M14.6 10a2.6 2.6 0 1 1-5.2 0a2.6 2.6 0 1 1 5.2 0z",
        "video": "M5.5 6.5h7A2.5 2.5 0 0 1 15 9v6a2.5 2.5 0 0 1-2.5 2.5h-7A2.5 2.5 0 0 1 3 15V9a2.5 2.5 0 0 1 2.5-2.5z"
                 + "M15 10.5l6-3v9l-6-3z"
    })

    implicitWidth: size
    implicitHeight: size
    width: size
    height: size
    Accessible.ignored: Accessible.name === ""
    // Shapes are not antialiased on the GPU without multisampling.
    layer.enabled: true
    layer.samples: 4

    Shape {
        width: 24
        height: 24
        scale: icon.size / 24
        transformOrigin: Item.TopLeft

        ShapePath {
            strokeColor: icon.color
            strokeWidth: 2
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap
            joinStyle: ShapePath.RoundJoin

            PathSvg {
                path: icon.paths[icon.name] ?? ""
            }
        }
    }
}
