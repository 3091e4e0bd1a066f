/*{
    "DESCRIPTION": "Blends smoothly from one picture to the next.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Transition"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "targetImage", "TYPE": "image"},
        {"NAME": "transitionTime", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 1.0}
    ]
}*/

void main()
{
    gl_FragColor = mix(IMG_THIS_PIXEL(inputImage), IMG_THIS_PIXEL(targetImage), transitionTime);
}
