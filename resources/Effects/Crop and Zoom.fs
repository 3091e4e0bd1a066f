/*{
    "DESCRIPTION": "Crops the edges, zooms in and pans around the picture.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Geometry Adjustment"],
    "READS_ONLY": {"X": "(0.5 + $Pan_X_Position * (0.5 - 0.5 / $zoom) + ($cropLeft - 0.5) / $zoom) * $WIDTH",
                   "WIDTH": "(1.0 - $cropLeft - $cropRight) / $zoom * $WIDTH",
                   "Y": "(0.5 + $Pan_Y_Position * (0.5 - 0.5 / $zoom) + ($cropBottom - 0.5) / $zoom) * $HEIGHT",
                   "HEIGHT": "(1.0 - $cropBottom - $cropTop) / $zoom * $HEIGHT"},
    "FILLS_OUTSIDE": {"X": "$cropLeft * $WIDTH", "WIDTH": "(1.0 - $cropLeft - $cropRight) * $WIDTH",
                      "Y": "$cropBottom * $HEIGHT", "HEIGHT": "(1.0 - $cropBottom - $cropTop) * $HEIGHT",
                      "COLOR": "fill"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "zoom", "LABEL": "Zoom", "TYPE": "float", "DEFAULT": 1.0, "MIN": 1.0, "MAX": 8.0},
        {"NAME": "Pan_X_Position", "TYPE": "float", "DEFAULT": 0.0},
        {"NAME": "Pan_Y_Position", "TYPE": "float", "DEFAULT": 0.0},
        {"NAME": "cropLeft", "LABEL": "Crop left", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 0.5},
        {"NAME": "cropRight", "LABEL": "Crop right", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 0.5},
        {"NAME": "cropTop", "LABEL": "Crop top", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 0.5},
        {"NAME": "cropBottom", "LABEL": "Crop bottom", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 0.5},
        {"NAME": "fill", "LABEL": "Cropped area", "TYPE": "color", "DEFAULT": [0.0, 0.0, 0.0, 1.0]}
    ]
}*/

void main()
{
    vec2 p = isf_FragNormCoord;
    if (p.x < cropLeft || p.x > 1.0 - cropRight || p.y > 1.0 - cropTop || p.y < cropBottom) {
        gl_FragColor = fill;
        return;
    }
    // Pan moves the window over the picture; it never leaves the picture.
    float room = 0.5 - 0.5 / zoom;
    vec2 centre = vec2(0.5) + vec2(Pan_X_Position, Pan_Y_Position) * room;
    gl_FragColor = IMG_NORM_PIXEL(inputImage, centre + (p - 0.5) / zoom);
}
