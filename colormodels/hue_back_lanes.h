// The integer byte kernels from HSV and HSI to RGB, written once over 16-bit
// lanes. fast_hue_back.cpp includes this file twice, each time inside a
// namespace that defines the lane type V, its width kBytes (bytes per
// register) and the lane operations for one instruction set, and with
// PAX_LANES_ATTR set to that instruction set's function attribute. The
// arithmetic and why it decides the bytes are described in fast_hue_back.cpp.
//
// A step loads kBytes pixels of each plane, widens them to two registers of
// 16-bit lanes, and narrows the results back to bytes.

// The sector (0..5) of hue bytes h and f = 6h - 255 x sector, the place in
// the sector in 255ths (hue byte 255 is sector 0, f 0).
PAX_LANES_ATTR PAX_INLINE V SectorOf(V h, V *f) {
    const V x6 = Mul(h, Set(6));
    const V sector = MulHi(Add(x6, Set(1)), Set(257)); // floor(6h / 255) for 6h <= 1530
    *f = Sub(x6, Mul(sector, Set(255)));
    return Sub(sector, And(Eq(sector, Set(6)), Set(6)));
}

// floor(x / 255) of any 16-bit x, and the remainder.
PAX_LANES_ATTR PAX_INLINE V Div255(V x, V *rest) {
    const V q = Shr7(MulHi(x, Set(0x8081)));
    *rest = Sub(x, Mul(q, Set(255)));
    return q;
}

// k = floor(c a / 65025) with c = 255 c1 + c0, as floor(floor(c a / 255) /
// 255) where c a / 255 = c1 a + c0 a / 255 (every term below 65,536); exact
// is all ones where 65025 divides c a.
PAX_LANES_ATTR PAX_INLINE V Ratio(V c1, V c0, V a, V *exact) {
    V rest0, rest1;
    const V part = Div255(Mul(c0, a), &rest0);
    const V k = Div255(Add(Mul(c1, a), part), &rest1);
    *exact = Eq(Or(rest0, rest1), Zero());
    return k;
}

// R, G and B bytes from the largest, middle and smallest bytes by sector:
// sector 0 (hi, mid, lo), 1 (mid, hi, lo), 2 (lo, hi, mid), 3 (lo, mid, hi),
// 4 (mid, lo, hi), 5 (hi, lo, mid).
PAX_LANES_ATTR PAX_INLINE void Place(V sector, V hi, V mid, V lo, BYTE *r, BYTE *g, BYTE *b) {
    const V e0 = Eq8(sector, Set8(0)), e1 = Eq8(sector, Set8(1)), e2 = Eq8(sector, Set8(2));
    const V e3 = Eq8(sector, Set8(3)), e4 = Eq8(sector, Set8(4)), e5 = Eq8(sector, Set8(5));
    Store(r, Select(Or(e0, e5), hi, Select(Or(e1, e4), mid, lo)));
    Store(g, Select(Or(e1, e2), hi, Select(Or(e0, e3), mid, lo)));
    Store(b, Select(Or(e3, e4), hi, Select(Or(e2, e5), mid, lo)));
}

// HSV bytes of kRunBlock pixels to RGB, with a bit per pixel whose smallest
// byte (p), or whose middle byte (q or t), must come from the doubles instead.
PAX_LANES_ATTR void HsvLanes(const BytePlanes &in, BytePlanes &out, uint64_t *lowFromDoubles,
                             uint64_t *midFromDoubles) {
    *lowFromDoubles = *midFromDoubles = 0;
    for (int at = 0; at < kRunBlock; at += kBytes) {
        const V hb = Load(in.c[0] + at), sb = Load(in.c[1] + at), vb = Load(in.c[2] + at);
        V sector[2], mid[2], lo[2], lowFlag[2], midFlag[2];
        for (int half = 0; half < 2; ++half) {
            const V h = Widen(hb, half), s = Widen(sb, half), v = Widen(vb, half);
            V f;
            sector[half] = SectorOf(h, &f);
            // q in odd sectors (f), t in even ones (255 - f).
            const V odd = Eq(And(sector[half], Set(1)), Set(1));
            const V a = Select(odd, f, Sub(Set(255), f));
            V c0, exact;
            const V c = Mul(v, s);
            const V c1 = Div255(c, &c0);
            const V k = Ratio(c1, c0, a, &exact);
            const V vLess1 = Sub(v, Set(1));
            const V c0Zero = Eq(c0, Zero());
            mid[half] = Sub(Sub(vLess1, k), exact);   // V - ceil(c a / 65025)
            lo[half] = Sub(Sub(vLess1, c1), c0Zero); // V - ceil(c / 255)
            // Whole numbers whose doubles are not known to be exact: p unless
            // S is 0 or 255 or V is 0; q or t unless c is 0 or they equal p.
            const V saturated = Eq(c1, v); // with c0 = 0: S = 255 (or V = 0)
            const V cZero = Eq(c, Zero());
            lowFlag[half] = AndNot(Or(cZero, saturated), c0Zero);
            midFlag[half] = AndNot(Or(cZero, And(Eq(a, Set(255)), saturated)), exact);
        }
        Place(Narrow(sector[0], sector[1]), vb, Narrow(mid[0], mid[1]), Narrow(lo[0], lo[1]),
              out.c[0] + at, out.c[1] + at, out.c[2] + at);
        *lowFromDoubles |= static_cast<uint64_t>(Bits(lowFlag[0], lowFlag[1])) << at;
        *midFromDoubles |= static_cast<uint64_t>(Bits(midFlag[0], midFlag[1])) << at;
    }
}

// HSI bytes of kRunBlock pixels to RGB, with a bit per pixel whose largest
// and smallest bytes (m2 and m1), or whose middle byte (the ramp), must come
// from the doubles instead.
PAX_LANES_ATTR void HsiLanes(const BytePlanes &in, BytePlanes &out, uint64_t *outerFromDoubles,
                             uint64_t *midFromDoubles) {
    *outerFromDoubles = *midFromDoubles = 0;
    for (int at = 0; at < kRunBlock; at += kBytes) {
        const V hb = Load(in.c[0] + at), sb = Load(in.c[1] + at), ib = Load(in.c[2] + at);
        V sector[2], hi[2], mid[2], lo[2], outerFlag[2], midFlag[2];
        for (int half = 0; half < 2; ++half) {
            const V h = Widen(hb, half), s = Widen(sb, half), i = Widen(ib, half);
            V f;
            sector[half] = SectorOf(h, &f);
            const V odd = Eq(And(sector[half], Set(1)), Set(1));
            V c0, exact;
            const V c = Mul(s, Min(i, Sub(Set(255), i)));
            const V c1 = Div255(c, &c0);
            const V iLess1 = Sub(i, Set(1));
            const V c0Zero = Eq(c0, Zero());
            hi[half] = Add(i, c1);                    // I + c / 255
            lo[half] = Sub(Sub(iLess1, c1), c0Zero); // I - ceil(c / 255)
            // w = 255 - 2g, g = f rising (even sectors), 255 - f falling.
            const V rising = Sub(Set(255), Add(f, f));
            const V w = Sub(Xor(rising, odd), odd);
            const V k = Ratio(c1, c0, Max(w, Sub(Zero(), w)), &exact);
            mid[half] = Select(Gt(w, Zero()), Sub(Sub(iLess1, k), exact), Add(i, k));
            // Every whole number but those of S = 0 or I = 0, and m2 = 2l, m1
            // = 0 of S = 255 with I <= 127.
            const V plain = Or(Eq(s, Zero()), Eq(i, Zero()));
            const V doubled = AndNot(Gt(i, Set(127)), Eq(s, Set(255)));
            outerFlag[half] = AndNot(Or(plain, doubled), c0Zero);
            midFlag[half] = AndNot(plain, exact);
        }
        Place(Narrow(sector[0], sector[1]), Narrow(hi[0], hi[1]), Narrow(mid[0], mid[1]), Narrow(lo[0], lo[1]),
              out.c[0] + at, out.c[1] + at, out.c[2] + at);
        *outerFromDoubles |= static_cast<uint64_t>(Bits(outerFlag[0], outerFlag[1])) << at;
        *midFromDoubles |= static_cast<uint64_t>(Bits(midFlag[0], midFlag[1])) << at;
    }
}
