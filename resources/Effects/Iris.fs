/*{
    "DESCRIPTION": "The next picture opens in a growing circle.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Transition"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "targetImage", "TYPE": "image"},
        {"NAME": "transitionTime", "TYPE": "float", "DEFAULT": 0.0, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "softness", "LABEL": "Edge softness", "TYPE": "float", "DEFAULT": 0.02, "MIN": 0.0, "MAX": 0.3},
        {"NAME": "X_Position", "TYPE": "float", "DEFAULT": 0.0},
        {"NAME": "Y_Position", "TYPE": "float", "DEFAULT": 0.0}
    ]
}*/

void main()
{
    vec2 aspect = vec2(RENDERSIZE.x / RENDERSIZE.y, 1.0);
    vec2 centre = vec2(X_Position, Y_Position) * 0.5 + 0.5;
    vec2 p = (isf_FragNormCoord - centre) * aspect;
    // Far enough to cover every corner from any centre.
    float reach = length(aspect) * (1.0 + softness);
    float r = transitionTime * reach;
    float d = length(p);
    float m = softness > 0.0 ? 1.0 - smoothstep(r - softness, r, d) : (d < r ? 1.0 : 0.0);
    gl_FragColor = mix(IMG_THIS_PIXEL(inputImage), IMG_THIS_PIXEL(targetImage), m);
}
