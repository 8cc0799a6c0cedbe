def rounded(v): return v
def write(a,b): pass
