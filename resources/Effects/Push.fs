/*{
    "DESCRIPTION": "The next picture pushes the current one out of the frame.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Transition"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "targetImage", "TYPE": "image"},
        {"NAME": "transitionTime", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "direction", "LABEL": "Comes in from", "TYPE": "long", "DEFAULT": 1, "VALUES": [0, 1, 2, 3],
         "LABELS": ["Left", "Right", "Top", "Bottom"]}
    ]
}*/

void main()
{
    vec2 uv = isf_FragNormCoord;
    vec2 dir = direction == 0 ? vec2(-1.0, 0.0) : direction == 1 ? vec2(1.0, 0.0) : direction == 2 ? vec2(0.0, 1.0) : vec2(0.0, -1.0);
    vec2 inNext = uv - dir * (1.0 - transitionTime);
    vec2 inCurrent = uv + dir * transitionTime;
    bool showNext = all(greaterThanEqual(inNext, vec2(0.0))) && all(lessThan(inNext, vec2(1.0)));
    gl_FragColor = showNext ? IMG_NORM_PIXEL(targetImage, inNext) : IMG_NORM_PIXEL(inputImage, inCurrent);
}
