// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Shapes

// A line symbol drawn from its path on a 24-unit grid, so that it takes the palette's colour at any size.
// Decorative: the text beside it says what it means.
Item {
    id: icon

    property string name
    property real size: 24
    property color color: palette.windowText

    readonly property var paths: ({
        "clock-alert": "M19 11.5A8 8 0 1 0 11.5 20M11 7v5l3 2M19 14.5v4M19 21v.5",
        "calendar": "M5 5.5h14A1.5 1.5 0 0 1 20.5 7v12a1.5 1.5 0 0 1-1.5 1.5H5A1.5 1.5 0 0 1 3.5 19V7A1.5 1.5 0 0 1 5 5.5z"
                    + "M3.5 10h17M8 3v4M16 3v4",
        "calendar-plus": "M5 5.5h14A1.5 1.5 0 0 1 20.5 7v5M12 20.5H5A1.5 1.5 0 0 1 3.5 19V7A1.5 1.5 0 0 1 5 5.5"
                         + "M3.5 10h17M8 3v4M16 3v4M18 15v6M15 18h6",
        "calendar-alert": "M5 5.5h14A1.5 1.5 0 0 1 20.5 7v12a1.5 1.5 0 0 1-1.5 1.5H5A1.5 1.5 0 0 1 3.5 19V7"
                          + "A1.5 1.5 0 0 1 5 5.5zM3.5 10h17M8 3v4M16 3v4M12 12.5v3.5M12 18v.5",
        "lock-shield": "M12 3l7.5 3v5.5c0 4.5-3.2 8-7.5 9.5-4.3-1.5-7.5-5-7.5-9.5V6zM9.5 12h5v4h-5zM10.5 12v-1.5a1.5 1.5 0 0 1 3 0V12",
        "eye": "M2.5 12S6 5.5 12 5.5 21.5 12 21.5 12 18 18.5 12 18.5 2.5 12 2.5 12zM15 12a3 3 0 1 1-6 0a3 3 0 1 1 6 0z",
        "video": "M4 6.5h10a1.5 1.5 0 0 1 1.5 1.5v8a1.5 1.5 0 0 1-1.5 1.5H4A1.5 1.5 0 0 1 2.5 16V8A1.5 1.5 0 0 1 4 6.5z"
                 + "M15.5 10.5l6-3.5v10l-6-3.5",
        "check-circle": "M21 12a9 9 0 1 1-18 0a9 9 0 1 1 18 0zM7.5 12.5l3 3 6-6.5",
        "warning": "M12 3.5l9.5 16.5h-19zM12 10v4.5M12 17v.5"
    })

    implicitWidth: size
    implicitHeight: size
    Accessible.ignored: true
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
            strokeWidth: 1.8
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap
            joinStyle: ShapePath.RoundJoin

            PathSvg {
                path: icon.paths[icon.name] ?? ""
            }
        }
    }
}
