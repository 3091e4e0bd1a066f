/*{
    "DESCRIPTION": "Crisper edges (unsharp mask).",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Sharpen"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "amount", "LABEL": "Amount", "TYPE": "float", "DEFAULT": 0.8, "MIN": 0.0, "MAX": 3.0},
        {"NAME": "radius", "LABEL": "Radius (pixels)", "TYPE": "float", "DEFAULT": 1.0, "MIN": 0.5, "MAX": 4.0}
    ]
}*/

void main()
{
    vec2 px = radius / RENDERSIZE;
    vec2 uv = isf_FragNormCoord;
    vec4 c = IMG_NORM_PIXEL(inputImage, uv);
    vec4 around = IMG_NORM_PIXEL(inputImage, uv + vec2(px.x, 0.0)) + IMG_NORM_PIXEL(inputImage, uv - vec2(px.x, 0.0)) +
                  IMG_NORM_PIXEL(inputImage, uv + vec2(0.0, px.y)) + IMG_NORM_PIXEL(inputImage, uv - vec2(0.0, px.y));
    gl_FragColor = vec4(clamp(c.rgb + (c.rgb - around.rgb * 0.25) * amount, 0.0, 1.0), c.a);
}
