/*{
    "DESCRIPTION": "A coloured frame around the picture, optionally with rounded corners.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Overlay"],
    "KEEPS_INSIDE": {"X": "($thickness + $cornerRadius) * $HEIGHT", "Y": "($thickness + $cornerRadius) * $HEIGHT",
                     "WIDTH": "$WIDTH - 2 * ($thickness + $cornerRadius) * $HEIGHT",
                     "HEIGHT": "$HEIGHT - 2 * ($thickness + $cornerRadius) * $HEIGHT"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "thickness", "LABEL": "Thickness", "TYPE": "float", "DEFAULT": 0.03, "MIN": 0.0, "MAX": 0.25},
        {"NAME": "cornerRadius", "LABEL": "Corner rounding", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 0.3},
        {"NAME": "color", "LABEL": "Colour", "TYPE": "color", "DEFAULT": [1.0, 1.0, 1.0, 1.0]}
    ]
}*/

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    float t = thickness * RENDERSIZE.y;
    float r = cornerRadius * RENDERSIZE.y;
    // Signed distance to the inner rounded rectangle; inside is negative.
    vec2 halfSize = RENDERSIZE * 0.5 - vec2(t);
    vec2 d = abs(gl_FragCoord.xy - RENDERSIZE * 0.5) - (halfSize - vec2(r));
    float inside = length(max(d, 0.0)) + min(max(d.x, d.y), 0.0) - r;
    float b = clamp(inside + 0.5, 0.0, 1.0) * color.a;
    gl_FragColor = vec4(mix(c.rgb, color.rgb, b), max(c.a, b));
}
