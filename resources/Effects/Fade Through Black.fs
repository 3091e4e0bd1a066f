/*{
    "DESCRIPTION": "Fades to black (or another colour), then up into the next picture.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Transition"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "targetImage", "TYPE": "image"},
        {"NAME": "transitionTime", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "color", "LABEL": "Colour in between", "TYPE": "color", "DEFAULT": [0.0, 0.0, 0.0, 1.0]}
    ]
}*/

void main()
{
    float t = transitionTime;
    gl_FragColor = t < 0.5 ? mix(IMG_THIS_PIXEL(inputImage), color, t * 2.0)
                           : mix(color, IMG_THIS_PIXEL(targetImage), t * 2.0 - 1.0);
}
