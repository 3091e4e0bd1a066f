/*{
    "DESCRIPTION": "Darkens the corners of the picture.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Stylize"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "amount", "LABEL": "Darkness", "TYPE": "float", "DEFAULT": 0.6, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "radius", "LABEL": "Size", "TYPE": "float", "DEFAULT": 0.8, "MIN": 0.0, "MAX": 1.5},
        {"NAME": "softness", "LABEL": "Softness", "TYPE": "float", "DEFAULT": 0.5, "MIN": 0.01, "MAX": 1.0},
        {"NAME": "color", "LABEL": "Colour", "TYPE": "color", "DEFAULT": [0.0, 0.0, 0.0, 1.0]}
    ]
}*/

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    vec2 p = (isf_FragNormCoord - 0.5) * vec2(RENDERSIZE.x / RENDERSIZE.y, 1.0);
    float d = length(p) * 1.2;
    float v = amount * smoothstep(radius - softness, radius, d);
    gl_FragColor = vec4(mix(c.rgb, color.rgb, v), c.a);
}
