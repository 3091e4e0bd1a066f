/*{
    "DESCRIPTION": "Soft Gaussian blur. Worked at half or quarter size, so large radii stay fast.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Blur"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "radius", "LABEL": "Radius (pixels)", "TYPE": "float", "DEFAULT": 8.0, "MIN": 0.0, "MAX": 60.0}
    ],
    "PASSES": [
        {"TARGET": "across", "WIDTH": "floor($WIDTH/min(4, max(2, floor($radius/6))))", "HEIGHT": "floor($HEIGHT/min(4, max(2, floor($radius/6))))"},
        {"TARGET": "down", "WIDTH": "floor($WIDTH/min(4, max(2, floor($radius/6))))", "HEIGHT": "floor($HEIGHT/min(4, max(2, floor($radius/6))))"},
        {}
    ]
}*/

// A nine-tap Gaussian (sigma two taps) in five fetches: each side pair of taps is one
// linear fetch between them. The tap spacing follows the radius.
vec4 blur9(sampler2D img, vec2 uv, vec2 step)
{
    vec2 near = step * 1.3846153846;
    vec2 far = step * 3.2307692308;
    return texture(img, uv) * 0.2270270270 + (texture(img, uv + near) + texture(img, uv - near)) * 0.3162162162 +
           (texture(img, uv + far) + texture(img, uv - far)) * 0.0702702703;
}

void main()
{
    vec2 uv = isf_FragNormCoord;
    float spacing = radius / 4.0;
    if (PASSINDEX == 0) {
        gl_FragColor = radius > 0.0 ? blur9(inputImage, uv, vec2(spacing / IMG_SIZE(inputImage).x, 0.0))
                                    : IMG_NORM_PIXEL(inputImage, uv);
    } else if (PASSINDEX == 1) {
        gl_FragColor = blur9(across, uv, vec2(0.0, spacing / IMG_SIZE(inputImage).y));
    } else {
        gl_FragColor = radius > 0.0 ? IMG_NORM_PIXEL(down, uv) : IMG_THIS_PIXEL(inputImage);
    }
}
