import vantry

with vantry.open("letters.hpk", "w") as package:
    package["alpha"] = b"the first letter"
    package["beta"] = b"the second letter"

with vantry.open("letters.hpk", "u") as package:
    package["alpha"] = b"first"
    package.rename("beta", "b")
    for key, body in package.items():
        print(key, body)
