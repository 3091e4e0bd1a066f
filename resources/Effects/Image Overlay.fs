/*{
    "DESCRIPTION": "Shows a picture or logo (animated GIFs play) over the video.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Overlay"],
    "CHANGES_ONLY": {"X": "($X_Position * 0.5 + 0.5) * $WIDTH - $scale * $WIDTH * 0.5", "WIDTH": "$scale * $WIDTH"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "Image", "LABEL": "Image", "TYPE": "image"},
        {"NAME": "opacity", "LABEL": "Opacity", "TYPE": "float", "DEFAULT": 1.0, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "scale", "LABEL": "Size", "TYPE": "float", "DEFAULT": 0.3, "MIN": 0.02, "MAX": 1.0},
        {"NAME": "X_Position", "TYPE": "float", "DEFAULT": 0.6},
        {"NAME": "Y_Position", "TYPE": "float", "DEFAULT": 0.6}
    ]
}*/

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    vec2 imageSize = IMG_SIZE(Image);
    vec2 size = vec2(scale * RENDERSIZE.x, scale * RENDERSIZE.x * imageSize.y / imageSize.x);
    vec2 centre = (vec2(X_Position, Y_Position) * 0.5 + 0.5) * RENDERSIZE;
    vec2 uv = (gl_FragCoord.xy - (centre - size * 0.5)) / size;
    if (imageSize.x <= 1.0 || any(lessThan(uv, vec2(0.0))) || any(greaterThanEqual(uv, vec2(1.0)))) {
        gl_FragColor = c;
        return;
    }
    vec4 o = IMG_NORM_PIXEL(Image, uv);
    float t = o.a * opacity;
    gl_FragColor = vec4(mix(c.rgb, o.rgb, t), max(c.a, t));
}
