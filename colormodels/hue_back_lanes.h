// The integer byte kernels from HSV and HSI to RGB, written once over 16-bit
// lanes. fast_hue_back.cpp includes this file twice, each time inside a
// namespace that defines the lane type V, its width kBytes (bytes per
// register) and the lane operations for one instruction set, and with
// PAX_LANES_ATTR set to that instruction set's function attribute. The
// arithmetic and why it decides the bytes are described in fast_hue_back.cpp.
//
// A step loads kBytes pixels of each plane, widens them to two registers of
// 16-bit lanes, and narrows the results back to bytes.

// The sector of hue bytes h, floor(6h / 255) (0..6, where 6 is hue byte
// 255, which counts as sector 0), and |d| with d = 255 x (sector | 1) - 6h:
// in an even sector 255 - f, in an odd one f, where f = 6h - 255 x sector is
// the place in the sector in 255ths (sector 6 gives 255, as sector 0 with f
// = 0 does).
PAX_LANES_ATTR PAX_INLINE V SectorOf(V h, V *distance) {
    const V x6 = Mul(h, Set(6));
    const V sector = MulHi(Add(x6, Set(1)), Set(257)); // exact for 6h <= 1530
    *distance = Abs(Sub(Mul(Or(sector, Set(1)), Set(255)), x6));
    return sector;
}

// floor(x / 255) of any 16-bit x.
PAX_LANES_ATTR PAX_INLINE V Div255(V x) { return Shr7(MulHi(x, Set(0x8081))); }

// k = floor(c a / 65025) with c = 255 c1 + c0: floor(c a / 255) = c1 a +
// floor(c0 a / 255) is below 65,536, and k is its floor over 255. exact is
// all ones where 65025 divides c a, which is where c a and 65025 k agree
// modulo 65,536 (the remainder lies below 65,025); 65025 = 65536 - 511.
PAX_LANES_ATTR PAX_INLINE V Ratio(V c, V c1, V c0, V a, V *exact) {
    const V k = Div255(Add(Mul(c1, a), Div255(Mul(c0, a))));
    *exact = Eq(Mul(c, a), Mul(k, Set(-511)));
    return k;
}

// R, G and B bytes from the largest, middle and smallest bytes by sector:
// sector 0 (hi, mid, lo), 1 (mid, hi, lo), 2 (lo, hi, mid), 3 (lo, mid, hi),
// 4 (mid, lo, hi), 5 (hi, lo, mid); In(sector, a, b) is all ones in the
// sectors a and b (sector 0 taking 6 with it).
PAX_LANES_ATTR PAX_INLINE void Place(V sector, V hi, V mid, V lo, BYTE *r, BYTE *g, BYTE *b) {
    Store(r, Select(In(sector, 0, 5), hi, Select(In(sector, 1, 4), mid, lo)));
    Store(g, Select(In(sector, 1, 2), hi, Select(In(sector, 0, 3), mid, lo)));
    Store(b, Select(In(sector, 3, 4), hi, Select(In(sector, 2, 5), mid, lo)));
}

// Place over kRunBlock pixels whose sector, largest, middle and smallest
// bytes are the planes of `parts`.
PAX_LANES_ATTR void PlaceAll(const BytePlanes &parts, BytePlanes &out) {
    for (int at = 0; at < kRunBlock; at += kBytes)
        Place(Load(parts.c[0] + at), Load(parts.c[1] + at), Load(parts.c[2] + at), Load(parts.c[3] + at),
              out.c[0] + at, out.c[1] + at, out.c[2] + at);
}

// The smallest byte of HSV bytes of kRunBlock pixels (p) into parts.c[3],
// with a bit per pixel whose p must come from the doubles instead.
PAX_LANES_ATTR uint64_t HsvLowLanes(const BytePlanes &in, BytePlanes &parts) {
    uint64_t fromDoubles = 0;
    for (int at = 0; at < kRunBlock; at += kBytes) {
        const V sb = Load(in.c[1] + at), vb = Load(in.c[2] + at);
        V lo[2], flag[2];
        for (int half = 0; half < 2; ++half) {
            const V s = Widen(sb, half), v = Widen(vb, half);
            const V c = Mul(v, s);
            const V c1 = Div255(c), c0Zero = Eq(Mul(c1, Set(255)), c);
            lo[half] = Sub(Sub(Sub(v, Set(1)), c1), c0Zero); // V - ceil(c / 255)
            // A whole p whose double is not known to be exact: S is not 0 or
            // 255, V not 0 (c1 = V with c0 = 0: S = 255 or V = 0).
            flag[half] = AndNot(Or(Eq(c, Zero()), Eq(c1, v)), c0Zero);
        }
        Store(parts.c[3] + at, Narrow(lo[0], lo[1]));
        fromDoubles |= static_cast<uint64_t>(Bits(flag[0], flag[1])) << at;
    }
    return fromDoubles;
}

// The sector, largest and middle bytes of HSV bytes of kRunBlock pixels (V,
// q or t) into parts.c[0..2], with a bit per pixel whose middle byte must
// come from the doubles instead.
PAX_LANES_ATTR uint64_t HsvLanes(const BytePlanes &in, BytePlanes &parts) {
    uint64_t fromDoubles = 0;
    for (int at = 0; at < kRunBlock; at += kBytes) {
        const V hb = Load(in.c[0] + at), sb = Load(in.c[1] + at), vb = Load(in.c[2] + at);
        V sector[2], mid[2], flag[2];
        for (int half = 0; half < 2; ++half) {
            const V h = Widen(hb, half), s = Widen(sb, half), v = Widen(vb, half);
            // q in odd sectors (f), t in even ones (255 - f).
            V a, exact;
            sector[half] = SectorOf(h, &a);
            const V c = Mul(v, s);
            const V c1 = Div255(c), c0 = Sub(c, Mul(c1, Set(255)));
            const V k = Ratio(c, c1, c0, a, &exact);
            mid[half] = Sub(Sub(Sub(v, Set(1)), k), exact); // V - ceil(c a / 65025)
            // A whole q or t whose double is not known to be exact: c is not
            // 0, and it is not the t equal to p of S = 255 (c1 = V).
            flag[half] = AndNot(Or(Eq(c, Zero()), And(Eq(a, Set(255)), Eq(c1, v))), exact);
        }
        Store(parts.c[0] + at, Narrow(sector[0], sector[1]));
        Store(parts.c[1] + at, vb);
        Store(parts.c[2] + at, Narrow(mid[0], mid[1]));
        fromDoubles |= static_cast<uint64_t>(Bits(flag[0], flag[1])) << at;
    }
    return fromDoubles;
}

// c = S min(I, 255 - I) of HSI lanes, and c1 = floor(c / 255).
PAX_LANES_ATTR PAX_INLINE V HsiC(V s, V i, V *c1) {
    const V c = Mul(s, Min(i, Sub(Set(255), i)));
    *c1 = Div255(c);
    return c;
}

// The largest and smallest bytes of HSI bytes of kRunBlock pixels (m2, m1)
// into parts.c[1] and parts.c[3], with a bit per pixel whose m2 and m1 must
// come from the doubles instead.
PAX_LANES_ATTR uint64_t HsiOuterLanes(const BytePlanes &in, BytePlanes &parts) {
    uint64_t fromDoubles = 0;
    for (int at = 0; at < kRunBlock; at += kBytes) {
        const V sb = Load(in.c[1] + at), ib = Load(in.c[2] + at);
        V hi[2], lo[2], flag[2];
        for (int half = 0; half < 2; ++half) {
            const V s = Widen(sb, half), i = Widen(ib, half);
            V c1;
            const V c = HsiC(s, i, &c1); // before c1 is read
            const V c0Zero = Eq(Mul(c1, Set(255)), c);
            hi[half] = Add(i, c1);                               // I + c / 255
            lo[half] = Sub(Sub(Sub(i, Set(1)), c1), c0Zero);     // I - ceil(c / 255)
            // Whole numbers but those of S = 0 or I = 0, and m2 = 2l, m1 = 0
            // of S = 255 with I <= 127.
            const V plain = Or(Eq(s, Zero()), Eq(i, Zero()));
            const V doubled = AndNot(Gt(i, Set(127)), Eq(s, Set(255)));
            flag[half] = AndNot(Or(plain, doubled), c0Zero);
        }
        Store(parts.c[1] + at, Narrow(hi[0], hi[1]));
        Store(parts.c[3] + at, Narrow(lo[0], lo[1]));
        fromDoubles |= static_cast<uint64_t>(Bits(flag[0], flag[1])) << at;
    }
    return fromDoubles;
}

// The sector and middle byte of HSI bytes of kRunBlock pixels (the ramp)
// into parts.c[0] and parts.c[2], with a bit per pixel whose middle byte
// must come from the doubles instead.
PAX_LANES_ATTR uint64_t HsiLanes(const BytePlanes &in, BytePlanes &parts) {
    uint64_t fromDoubles = 0;
    for (int at = 0; at < kRunBlock; at += kBytes) {
        const V hb = Load(in.c[0] + at), sb = Load(in.c[1] + at), ib = Load(in.c[2] + at);
        V sector[2], mid[2], flag[2];
        for (int half = 0; half < 2; ++half) {
            const V h = Widen(hb, half), s = Widen(sb, half), i = Widen(ib, half);
            V d, c1, exact;
            sector[half] = SectorOf(h, &d);
            const V c = HsiC(s, i, &c1);
            // w = 255 - 2g with g = f rising (even sectors), 255 - f falling:
            // 2|d| - 255 in both.
            const V w = Sub(Add(d, d), Set(255));
            const V k = Ratio(c, c1, Sub(c, Mul(c1, Set(255))), Abs(w), &exact);
            mid[half] = Select(Gt(w, Zero()), Sub(Sub(Sub(i, Set(1)), k), exact), Add(i, k));
            // Whole numbers but those of S = 0 or I = 0.
            flag[half] = AndNot(Or(Eq(s, Zero()), Eq(i, Zero())), exact);
        }
        Store(parts.c[0] + at, Narrow(sector[0], sector[1]));
        Store(parts.c[2] + at, Narrow(mid[0], mid[1]));
        fromDoubles |= static_cast<uint64_t>(Bits(flag[0], flag[1])) << at;
    }
    return fromDoubles;
}
