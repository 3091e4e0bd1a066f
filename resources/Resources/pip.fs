/*{
    "DESCRIPTION": "A second source as a picture inside the video.",
    "CREDIT": "Lumaveil",
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "pipImage", "LABEL": "_Second source", "TYPE": "image"},
        {"NAME": "Clear_background", "LABEL": "Clear background", "TYPE": "bool", "DEFAULT": true},
        {"NAME": "PIP_X_Position", "TYPE": "float", "DEFAULT": 0.45},
        {"NAME": "PIP_Y_Position", "TYPE": "float", "DEFAULT": 0.45},
        {"NAME": "size", "LABEL": "Size", "TYPE": "float", "DEFAULT": 0.35, "MIN": 0.05, "MAX": 1.0},
        {"NAME": "borderWidth", "LABEL": "Border (pixels)", "TYPE": "float", "DEFAULT": 2.0, "MIN": 0.0, "MAX": 20.0},
        {"NAME": "borderColor", "LABEL": "Border colour", "TYPE": "color", "DEFAULT": [1.0, 1.0, 1.0, 1.0]},
        {"NAME": "opacity", "LABEL": "Opacity", "TYPE": "float", "DEFAULT": 1.0, "MIN": 0.0, "MAX": 1.0}
    ]
}*/

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    // The inset keeps the frame's shape; its centre follows the position.
    vec2 box = RENDERSIZE * size;
    vec2 centre = (vec2(PIP_X_Position, PIP_Y_Position) * 0.5 + 0.5) * RENDERSIZE;
    vec2 q = gl_FragCoord.xy - (centre - box * 0.5);
    vec2 uv = q / box;
    vec2 outside = max(-q, q - box);
    float edge = max(outside.x, outside.y);
    if (edge >= borderWidth) {
        gl_FragColor = c;
    } else if (edge >= 0.0) {
        gl_FragColor = vec4(mix(c.rgb, borderColor.rgb, borderColor.a * opacity), max(c.a, borderColor.a * opacity));
    } else {
        vec4 p = IMG_NORM_PIXEL(pipImage, uv);
        float t = p.a * opacity;
        gl_FragColor = vec4(mix(c.rgb, p.rgb, t), max(c.a, t));
    }
}
