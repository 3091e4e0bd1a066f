/*{
    "DESCRIPTION": "The next picture wipes across the current one.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Transition"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "targetImage", "TYPE": "image"},
        {"NAME": "transitionTime", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "direction", "LABEL": "Direction", "TYPE": "long", "DEFAULT": 0, "VALUES": [0, 1, 2, 3],
         "LABELS": ["Left to right", "Right to left", "Top to bottom", "Bottom to top"]},
        {"NAME": "softness", "LABEL": "Edge softness", "TYPE": "float", "DEFAULT": 0.02, "MIN": 0.0, "MAX": 0.5}
    ]
}*/

void main()
{
    vec2 uv = isf_FragNormCoord;
    float x = direction == 0 ? uv.x : direction == 1 ? 1.0 - uv.x : direction == 2 ? 1.0 - uv.y : uv.y;
    float edge = transitionTime * (1.0 + softness);
    float m = softness > 0.0 ? 1.0 - smoothstep(edge - softness, edge, x) : (x < edge ? 1.0 : 0.0);
    gl_FragColor = mix(IMG_THIS_PIXEL(inputImage), IMG_THIS_PIXEL(targetImage), m);
}
